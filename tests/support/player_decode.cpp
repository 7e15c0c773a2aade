#include "support/player_decode.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <numeric>
#include <regex>
#include <sstream>

#include <sys/wait.h>
#include <unistd.h>

#include "support/media_fixtures.h"

namespace testing_support {

namespace fs = std::filesystem;

namespace {

// A GStreamer pipeline's front, ending in one kind of decoded stream; qtdemux reads MP4 and MOV.
std::string gstreamerSource(const fs::path& file, const std::string& kind) {
    static const std::regex kQuickTime(R"(\.(mp4|mov|m4a|m4v|3gp))", std::regex::icase);
    std::string front =
        std::string(VANTRELL_GST_LAUNCH) + " -v filesrc location=" + quote(file.string());
    if (std::regex_match(file.extension().string(), kQuickTime))
        return front + " ! qtdemux name=d d." + kind + "_0 ! queue ! decodebin";
    return front + " ! decodebin name=d d. ! " + kind + "/x-raw";
}

// A number GStreamer prints as `field=(type)123`.
std::optional<std::uint64_t> gstField(const std::string& line, const std::string& field,
                                      const std::string& type = "guint64") {
    const std::string key = field + "=(" + type + ")";
    const auto at = line.find(key);
    if (at == std::string::npos) return std::nullopt;
    return std::strtoull(line.c_str() + at + key.size(), nullptr, 10);
}

// Runs a command, feeding each line it prints to `onLine`; answers the exit status.
template <typename OnLine>
int runLines(const std::string& command, OnLine onLine) {
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    if (!pipe) return -1;
    char* buffer = nullptr;
    std::size_t capacity = 0;
    for (ssize_t n; (n = ::getline(&buffer, &capacity, pipe)) > 0;)
        onLine(std::string(buffer, static_cast<std::size_t>(n) - (buffer[n - 1] == '\n')));
    std::free(buffer);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Each buffer's running time (segment base plus offset), from `identity silent=false` messages.
class GstTrace {
  public:
    // Runs `pipeline` into `out`, following it; answers the exit status.
    int run(const std::string& pipeline, const fs::path& out) {
        return runLines(
            pipeline + " ! identity silent=false ! filesink location=" + quote(out.string()),
            [&](const std::string& line) { read(line); });
    }

    int width = 0;
    int height = 0;
    std::vector<double> times;
    std::string errors;

  private:
    void read(const std::string& line) {
        if (line.find("ERROR") != std::string::npos) errors += line + "\n";
        if (line.find("filesink0.GstPad:sink: caps") != std::string::npos) {
            for (auto [name, value] : {std::pair{"width", &width}, {"height", &height}})
                *value = static_cast<int>(gstField(line, name, "int").value_or(*value));
        }
        if (line.find("last-message = ") == std::string::npos) return;
        if (line.find("type: segment") != std::string::npos) {
            segmentBase_ = gstField(line, "base").value_or(0) / 1e9;
            segmentStart_ = gstField(line, "start").value_or(0) / 1e9;
        } else if (line.find("chain ") != std::string::npos) {
            // Times such as "pts: 0:00:01.066666666".
            unsigned hours = 0, minutes = 0;
            double seconds = 0;
            const auto at = line.find("pts: ");
            if (at != std::string::npos &&
                std::sscanf(line.c_str() + at + 5, "%u:%u:%lf", &hours, &minutes, &seconds) == 3)
                times.push_back(segmentBase_ + hours * 3600.0 + minutes * 60.0 + seconds -
                                segmentStart_);
        }
    }

    double segmentBase_ = 0;
    double segmentStart_ = 0;
};

// Presentation times from framemd5 lines, and the size of the pictures as written.
std::vector<double> framemd5Times(const std::string& text, int* width = nullptr,
                                  int* height = nullptr) {
    std::vector<double> times;
    std::istringstream lines(text);
    std::string line;
    double unit = 0;
    while (std::getline(lines, line)) {
        int num = 0, den = 0;
        if (std::sscanf(line.c_str(), "#tb 0: %d/%d", &num, &den) == 2) unit = double(num) / den;
        if (width) std::sscanf(line.c_str(), "#dimensions 0: %dx%d", width, height);
        if (line.empty() || line[0] == '#') continue;
        long long stream = 0, dts = 0, pts = 0;
        if (std::sscanf(line.c_str(), "%lld, %lld, %lld", &stream, &dts, &pts) == 3)
            times.push_back(pts * unit);
    }
    return times;
}

std::string fail(const std::string& what, const fs::path& file, const std::string& detail) {
    return what + " could not decode " + file.string() + (detail.empty() ? "" : ": " + detail);
}

}  // namespace

const char* playerName(Player player) {
    return player == Player::ffmpeg ? "ffmpeg" : "gstreamer";
}

std::size_t DecodedVideo::frameBytes() const {
    const std::size_t w = width, h = height;
    if (layout == PixelLayout::rgb24) return w * h * 3;
    return w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2);
}

std::vector<std::uint8_t> DecodedVideo::frame(std::size_t index) const {
    std::vector<std::uint8_t> bytes(frameBytes());
    std::ifstream in(rawFile, std::ios::binary);
    in.seekg(static_cast<std::streamoff>(index * bytes.size()));
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!in) bytes.clear();
    return bytes;
}

float DecodedAudio::peakBetween(double fromSeconds, double toSeconds) const {
    const auto first =
        std::clamp<std::int64_t>(std::llround(fromSeconds * sampleRateHz), 0, frameCount());
    const auto last =
        std::clamp<std::int64_t>(std::llround(toSeconds * sampleRateHz), first, frameCount());
    float peak = 0;
    for (std::int64_t i = first * channels; i < last * channels; ++i)
        peak = std::max(peak, std::abs(samples[i]));
    return peak;
}

DecodedVideo decodeVideo(const fs::path& file, Player player, const fs::path& workDir,
                         const VideoDecodeOptions& options) {
    DecodedVideo video;
    video.layout = options.layout;
    fs::create_directories(workDir);
    video.rawFile = workDir / (file.stem().string() + "-" + playerName(player) + ".raw");
    fs::remove(video.rawFile);
    const bool rgb = options.layout == PixelLayout::rgb24;
    std::string output;
    int status = 0;
    if (player == Player::ffmpeg) {
        std::string filters =
            "-fps_mode passthrough -pix_fmt " + std::string(rgb ? "rgb24" : "yuv420p");
        if (options.size)
            filters += " -vf scale=" + std::to_string(options.size->first) + ":" +
                       std::to_string(options.size->second);
        const auto md5 = workDir / (file.stem().string() + "-ffmpeg.framemd5");
        status = runLines(std::string(VANTRELL_FFMPEG) + " -nostdin -v error -y -i " +
                              quote(file.string()) + " -map 0:v:0 " + filters + " -f rawvideo " +
                              quote(video.rawFile.string()) + " -map 0:v:0 " + filters +
                              " -enc_time_base -1 -f framemd5 " + quote(md5.string()),
                          [&](const std::string& line) { output += line + "\n"; });
        video.seconds = framemd5Times(contentsOf(md5), &video.width, &video.height);
    } else {
        std::string caps = std::string("video/x-raw,format=") + (rgb ? "RGB" : "I420");
        if (options.size)
            caps += ",width=" + std::to_string(options.size->first) +
                    ",height=" + std::to_string(options.size->second);
        GstTrace trace;
        status =
            trace.run(gstreamerSource(file, "video") +
                          " ! videoflip video-direction=auto ! videoconvert ! videoscale ! " + caps,
                      video.rawFile);
        output = trace.errors;
        video.width = trace.width;
        video.height = trace.height;
        video.seconds = std::move(trace.times);
    }
    if (status != 0 || video.width <= 0 || video.height <= 0) {
        video.error = fail(playerName(player), file, output);
        return video;
    }
    std::ifstream in(video.rawFile, std::ios::binary);
    std::string bytes(video.frameBytes(), '\0');
    const auto luma = static_cast<std::ptrdiff_t>(video.width) * video.height;
    while (in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
        video.hashes.push_back(std::to_string(std::hash<std::string>{}(bytes)));
        if (!rgb)
            video.meanLuma.push_back(
                std::accumulate(bytes.begin(), bytes.begin() + luma, 0.0,
                                [](double sum, char c) { return sum + std::uint8_t(c); }) /
                double(luma));
    }
    if (video.seconds.size() != video.hashes.size())
        video.error = fail(playerName(player), file,
                           std::to_string(video.hashes.size()) + " frames but " +
                               std::to_string(video.seconds.size()) + " times");
    return video;
}

DecodedAudio decodeAudio(const fs::path& file, Player player, int sampleRateHz, int channels) {
    DecodedAudio audio;
    audio.sampleRateHz = sampleRateHz;
    audio.channels = channels;
    const auto raw = fs::temp_directory_path() / ("player-decode-" + std::to_string(::getpid()) +
                                                  "-" + file.filename().string() + ".f32");
    std::vector<double> times;
    std::string errors = "no audio";
    if (player == Player::ffmpeg) {
        // The first sample's time comes from a frame hash list of the same decode.
        const std::string format =
            " -map 0:a:0 -ar " + std::to_string(sampleRateHz) + " -ac " + std::to_string(channels);
        times = framemd5Times(outputOf(std::string(VANTRELL_FFMPEG) + " -nostdin -v error -y -i " +
                                       quote(file.string()) + format + " -f f32le " +
                                       quote(raw.string()) + format +
                                       " -c:a pcm_f32le -f framemd5 - 2>/dev/null"));
    } else {
        GstTrace trace;
        if (trace.run(gstreamerSource(file, "audio") +
                          " ! audioconvert ! audioresample ! "
                          "audio/x-raw,format=F32LE,layout=interleaved,rate=" +
                          std::to_string(sampleRateHz) + ",channels=" + std::to_string(channels),
                      raw) == 0)
            times = std::move(trace.times);
        errors = trace.errors;
    }
    const std::string bytes = contentsOf(raw);
    fs::remove(raw);
    if (times.empty()) {
        audio.error = fail(playerName(player), file, errors);
        return audio;
    }
    audio.startSeconds = times.front();
    audio.samples.resize(bytes.size() / sizeof(float));
    std::memcpy(audio.samples.data(), bytes.data(), audio.samples.size() * sizeof(float));
    return audio;
}

double psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    if (a.size() != b.size() || a.empty()) return 0;
    double squared = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double d = double(a[i]) - double(b[i]);
        squared += d * d;
    }
    if (squared == 0) return std::numeric_limits<double>::infinity();
    return 10 * std::log10(255.0 * 255.0 * double(a.size()) / squared);
}

bool looksBlack(double meanLuma) {
    return meanLuma <= 20;
}

}  // namespace testing_support
