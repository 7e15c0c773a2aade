#include "export/export_job.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

#include "common/log.h"
#include "common/uuid.h"

namespace exporting {

namespace {

namespace fs = std::filesystem;

std::string percentText(double fraction) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "Exporting %d%%", static_cast<int>(fraction * 100));
    return buffer;
}

// Reports a road's progress every 0.2 s from a thread of its own, as the road itself
// only records how far it has come.
class ProgressPoller {
  public:
    ProgressPoller(const ExportReporter& report, double scale)
        : thread_([this, &report, scale](std::stop_token stop) {
              std::mutex mutex;
              std::condition_variable_any wake;
              while (!stop.stop_requested()) {
                  double p = fraction_.load();
                  report(p * scale, p < 1 ? percentText(p) : "Finalizing…");
                  std::unique_lock lock(mutex);
                  wake.wait_for(lock, stop, std::chrono::duration<double>(kProgressIntervalSeconds),
                                [] { return false; });
              }
          }) {}

    ProgressCallback callback() {
        return [this](double fraction) { fraction_.store(fraction); };
    }

  private:
    std::atomic<double> fraction_{0};
    std::jthread thread_;  // last: it reads fraction_ until joined
};

common::Status runRoad(const ExportRoad& road, const composition::Composition& composition,
                       const ExportJob& job, const fs::path& file, const ExportReporter& report,
                       double scale, std::stop_token stop) {
    ProgressPoller poller(report, scale);
    return road(composition, job, file, poller.callback(), stop);
}

common::Error systemError(const std::string& what, const fs::path& file, int err) {
    return common::Error{what + " " + file.string() + ": " + std::strerror(err) + "."};
}

common::Status syncFile(const fs::path& file) {
    int fd = ::open(file.c_str(), O_RDONLY);
    if (fd < 0) return systemError("Can't open", file, errno);
    int rc = ::fsync(fd);
    int err = errno;
    ::close(fd);
    if (rc != 0) return systemError("Can't write", file, err);
    return common::success();
}

// Puts the finished file in place in one rename, so that a file already at the
// destination is replaced only by a complete one. Across file systems the file is first
// copied beside the destination.
common::Status moveIntoPlace(const fs::path& finished, const fs::path& destination) {
    if (::rename(finished.c_str(), destination.c_str()) == 0) return common::success();
    if (errno != EXDEV) return systemError("Can't move the export to", destination, errno);
    auto beside =
        destination.parent_path() / ("." + destination.filename().string() + ".vantrell-" +
                                     common::Uuid::random().toString() + ".partial");
    std::error_code ec;
    fs::copy_file(finished, beside, fs::copy_options::overwrite_existing, ec);
    if (ec) {
        fs::remove(beside, ec);
        return common::Error{"Can't copy the export to " + destination.parent_path().string() +
                             ": " + ec.message() + "."};
    }
    if (auto synced = syncFile(beside); !synced) {
        fs::remove(beside, ec);
        return synced;
    }
    if (::rename(beside.c_str(), destination.c_str()) != 0) {
        int err = errno;
        fs::remove(beside, ec);
        return systemError("Can't move the export to", destination, err);
    }
    fs::remove(finished, ec);
    return common::success();
}

common::Status failed(const std::string& prefix, const common::Error& error) {
    return common::Error{prefix + error.message, error.avCode};
}

}  // namespace

bool jobHasCrop(const ExportJob& job) {
    bool anyInset =
        job.cropTop > 0 || job.cropLeading > 0 || job.cropTrailing > 0 || job.cropBottom > 0;
    if (!anyInset) return false;
    for (const auto& c : job.clips)
        if (c.isOnVideoRow() && c.naturalSize.width > 0 && c.naturalSize.height > 0) return true;
    return false;
}

common::Status runExportJob(const ExportJob& job, const ExportRoads& roads,
                            const ExportReporter& report, std::stop_token stop) {
    if (job.clips.empty()) return common::Error{"Failed: No clips to export."};
    auto temporary =
        fs::temp_directory_path() / ("vantrell-export-" + common::Uuid::random().toString() + "." +
                                     std::string(model::toString(job.format)));
    // Whatever happens below, the temporary file does not outlive this call.
    struct Cleanup {
        fs::path file;
        ~Cleanup() {
            std::error_code ec;
            fs::remove(file, ec);
        }
    } cleanup{temporary};

    auto composition = roads.build(job.clips);
    common::Status outcome = common::success();
    if (jobHasCrop(job)) {
        // The crop road keeps the bar short of full until the file is done.
        outcome = runRoad(roads.crop, composition, job, temporary, report, 0.99, stop);
    } else if (job.passthroughEligible) {
        outcome = runRoad(roads.passthrough, composition, job, temporary, report, 1.0, stop);
        if (!outcome && !stop.stop_requested()) {
            common::exportLog.info("passthrough refused, re-encoding: " + outcome.error().message);
            report(0, "Re-encoding…");
            outcome = runRoad(roads.reencode, composition, job, temporary, report, 1.0, stop);
        }
    } else {
        outcome = runRoad(roads.reencode, composition, job, temporary, report, 1.0, stop);
    }
    if (!outcome) {
        common::exportLog.error("export failed: " + outcome.error().message);
        return failed("Failed: ", outcome.error());
    }
    if (stop.stop_requested()) return failed("Failed: ", exportCancelled());
    report(1.0, "Done");
    if (auto moved = moveIntoPlace(temporary, job.destination); !moved)
        return failed("Failed to move output: ", moved.error());
    return common::success();
}

}  // namespace exporting
