#pragma once

#include <nlohmann/json.hpp>

#include "model/clip.h"
#include "model/project.h"

namespace cli {

// What `probe` prints for one file.
nlohmann::json probeJson(const model::Clip& clip);

// Every clip field; the images and peaks by their sizes and counts. Absent values are null.
nlohmann::json clipJson(const model::Clip& clip);

// What `info --json` prints: always an object at the top.
nlohmann::json projectJson(const model::Project& project);

}  // namespace cli
