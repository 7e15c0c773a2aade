#pragma once

#include "common/executor.h"
#include "timeline/trim_readout_bubble.h"

namespace app {

// Fetches the trim bubble's source frames in the background, decoded from the file itself
// and fitted inside the thumbnail's box; answers on the executor's owning thread.
timeline::FrameRequester trimFrameRequester(common::Executor& executor);

}  // namespace app
