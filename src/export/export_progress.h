#pragma once

#include <functional>

#include "common/result.h"

namespace exporting {

// Told how far an export has come, as a fraction from 0 to 1 that never goes down. Called
// on the exporting thread between packets: it must return quickly and must not throw.
using ProgressCallback = std::function<void(double fraction)>;

// The error an export ends with when its stop token was requested.
inline common::Error exportCancelled() {
    return common::Error{"The export was cancelled."};
}

}  // namespace exporting
