#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "model/clip.h"

// Media, clips and waiting for the offscreen event loop, for the preview's tests.
namespace preview_test {

// The application the widgets need, on the offscreen platform; made on first use.
void ensureApplication();

// Runs the event loop until `done` holds; false if it did not within `timeout`.
bool waitFor(const std::function<bool()>& done,
             std::chrono::milliseconds timeout = std::chrono::seconds(20));

// A 320x240 30 fps H.264 file with a tone, keyframes a second apart, `seconds` long.
std::filesystem::path movie(const std::string& name, double seconds);

// `files` probed and placed one after the other from time 0.
std::vector<model::Clip> clipsOf(const std::vector<std::filesystem::path>& files);

}  // namespace preview_test
