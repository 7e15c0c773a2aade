#include "media/av_error.h"

extern "C" {
#include <libavutil/error.h>
}

namespace media {

common::Error avError(int code, std::string context) {
    char description[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, description, sizeof description);
    return {std::move(context) + ": " + description + ".", code};
}

}  // namespace media
