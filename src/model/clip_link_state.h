#pragma once

namespace model {

// How one clip's picture and sound belong together, as the menu and the clip bar show it.
// `linked`: one record with both streams, which can be unlinked. `unlinked`: a clip of a
// pair that an unlink made, which can be relinked while the pair is whole. `none`: neither.
enum class ClipLinkState { none = 1, linked, unlinked };

}  // namespace model
