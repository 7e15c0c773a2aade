#pragma once

#include <string>

#include "common/result.h"

namespace media {

// An Error for an FFmpeg return code: `context` (a sentence without its full stop, naming
// the file and what was being done), then FFmpeg's own description of `code`.
common::Error avError(int code, std::string context);

}  // namespace media
