#include "cli/session.h"

#include "media/local_media_services.h"

namespace cli {

Session::Session() : media_(std::make_shared<media::LocalMediaServices>()) {}

}  // namespace cli
