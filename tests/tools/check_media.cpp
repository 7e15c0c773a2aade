// check_media --cli PATH/vantrell-cli DIR: every file of DIR imported twice, cut off keyframes,
// joined with and without a gap and exported through both roads, each export played by the
// ffmpeg tool and GStreamer against the source as the ffmpeg tool plays it. One line per file,
// export and check, then a summary; exit status 0 when nothing failed.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include "support/media_fixtures.h"
#include "support/player_decode.h"

namespace {

namespace fs = std::filesystem;
namespace ts = testing_support;
using ts::DecodedAudio;
using ts::DecodedVideo;
using ts::Player;
using ts::quote;

// Small pictures keep hour-long camera files cheap; copied frames decode identically at any scale.
const ts::VideoDecodeOptions kDecode{ts::PixelLayout::i420, std::pair{320, 180}};
constexpr double kGapSeconds = 0.5;
// Ample for the short clips of phones and cameras; a file that takes longer is stuck.
constexpr int kFileSeconds = 300;
constexpr double kCopiedPsnr = 1e9;  // identical
constexpr double kReencodedPsnr = 35;
constexpr double kSmartCutPsnr = 45;  // the frames a smart cut re-encodes around its cuts
// Half an AAC frame at 48 kHz; a coded frame of most codecs is no longer.
constexpr double kAudioToleranceSeconds = 0.0107;

// Copied sound is cut in whole coded frames and placed within half of one of them; ALAC's
// and some Vorbis frames are far longer than AAC's. PCM is cut on the sample.
double copiedAudioTolerance(const fs::path& source) {
    const std::string probed =
        ts::ffprobe(source,
                    "-select_streams a:0 -read_intervals %+#2 -show_entries "
                    "stream=codec_name:packet=duration_time -of default=nw=1");
    if (probed.find("codec_name=pcm_") != std::string::npos) return kAudioToleranceSeconds;
    double frame = 0;
    for (std::size_t at = 0; (at = probed.find("duration_time=", at)) != std::string::npos; ++at)
        frame = std::max(frame, std::atof(probed.c_str() + at + 14));
    return std::max(kAudioToleranceSeconds, frame / 2 + 0.0005);
}

// Whether the ffmpeg tool reads the file's first picture stream as full-range.
bool fullRange(const fs::path& source) {
    const std::string probed = testing_support::ffprobe(
        source, "-select_streams v:0 -show_entries stream=color_range,pix_fmt -of csv=p=0");
    return probed.find("pc") != std::string::npos || probed.find("yuvj") != std::string::npos;
}

// The source's first picture stream as the ffmpeg tool writes it to `out` with `args`.
fs::path pictures(const fs::path& source, const fs::path& out, const std::string& args) {
    ts::outputOf(std::string(VANTRELL_FFMPEG) + " -nostdin -v error -y -i " +
                 quote(source.string()) + " -map 0:v:0 " + args + " " + quote(out.string()) +
                 " 2>/dev/null");
    return out;
}

struct Placement {
    double start = 0;
    double in = 0;
    double out = 0;
    double end() const { return start + out - in; }
};

std::string fixed(double value, int digits = 3) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

// Command output spans lines, so its line breaks become spaces.
std::string resultLine(const std::string& file, const std::string& what, const std::string& check,
                       bool ok, std::string detail) {
    std::replace(detail.begin(), detail.end(), '\n', ' ');
    return (ok ? "PASS " : "FAIL ") + file + "  " + what + "  " + check + "  " + detail + "\n";
}

// Flushed at once, as the time limit may end the process at any moment.
void report(const std::string& file, const std::string& what, const std::string& check, bool ok,
            const std::string& detail) {
    std::cout << resultLine(file, what, check, ok, detail) << std::flush;
}

void skip(const std::string& file, const std::string& why) {
    std::cout << "SKIP " << file << "  " << why << "\n" << std::flush;
}

std::pair<std::string, int> run(const std::string& command) {
    const std::string output = ts::outputOf(command + " 2>&1; echo \"exit=$?\"");
    const auto at = output.rfind("exit=");
    return {output.substr(0, at),
            at == std::string::npos ? -1 : std::atoi(output.c_str() + at + 5)};
}

// The last frame of `video` that starts at or before `seconds`, or none before the first.
std::optional<std::size_t> frameAt(const DecodedVideo& video, double seconds) {
    auto after = std::upper_bound(video.seconds.begin(), video.seconds.end(), seconds + 0.0005);
    if (after == video.seconds.begin()) return std::nullopt;
    return static_cast<std::size_t>(after - video.seconds.begin() - 1);
}

std::vector<float> mono(const DecodedAudio& audio, double from, double seconds) {
    std::vector<float> out;
    const auto first = static_cast<std::int64_t>(std::llround(from * audio.sampleRateHz));
    const auto count = static_cast<std::int64_t>(seconds * audio.sampleRateHz);
    for (std::int64_t i = first; i < first + count; ++i) {
        float sum = 0;
        for (int c = 0; c < audio.channels; ++c) {
            const std::int64_t at = i * audio.channels + c;
            sum += at >= 0 && at < std::ssize(audio.samples) ? audio.samples[at] : 0;
        }
        out.push_back(sum / audio.channels);
    }
    return out;
}

// Where (in seconds, relative to `expectedAt`) the output's window best matches the source.
std::optional<double> audioOffset(const DecodedAudio& source, double expectedAt,
                                  const DecodedAudio& output, double outputAt) {
    constexpr double kWindow = 0.2;
    constexpr double kSearch = 0.1;
    const auto window = mono(output, outputAt - output.startSeconds, kWindow);
    double energy = 0;
    for (float s : window) energy += double(s) * s;
    if (energy < 1e-4) return std::nullopt;  // silence matches anywhere
    const auto haystack =
        mono(source, expectedAt - source.startSeconds - kSearch, kWindow + 2 * kSearch);
    std::vector<double> errors;
    double enough = 1e300;  // past this a place cannot be among the best
    for (std::size_t at = 0; at + window.size() <= haystack.size(); ++at) {
        double error = 0;
        for (std::size_t i = 0; i < window.size() && error <= enough; ++i) {
            const double d = double(window[i]) - haystack[at + i];
            error += d * d;
        }
        errors.push_back(error);
        enough = std::min(enough, error * 1.1 + 1e-9);
    }
    if (errors.empty()) return std::nullopt;
    // A tone or a beat matches itself a period away almost as well; of the matches as good
    // as the best but for coding noise, the nearest to the expected place is the answer.
    const double best = *std::min_element(errors.begin(), errors.end());
    const auto expected = static_cast<std::ptrdiff_t>(kSearch * source.sampleRateHz);
    std::ptrdiff_t bestAt = 0;
    for (std::size_t at = 0; at < errors.size(); ++at) {
        const auto here = static_cast<std::ptrdiff_t>(at);
        if (errors[at] <= best * 1.1 + 1e-9 &&
            (errors[bestAt] > best * 1.1 + 1e-9 ||
             std::abs(here - expected) < std::abs(bestAt - expected)))
            bestAt = here;
    }
    return double(bestAt) / source.sampleRateHz - kSearch;
}

// A player's pictures of the source and how many of its first frames the reference hides (under
// the source's own edit list): those that best match the reference follow. None when fewer.
using Aligned = std::pair<DecodedVideo, std::size_t>;

std::optional<Aligned> alignedTo(const DecodedVideo& reference, DecodedVideo own) {
    const std::size_t count = reference.frameCount();
    if (!own.error.empty() || own.frameCount() < count || count == 0) return std::nullopt;
    std::size_t best = 0;
    double bestMatch = -1;
    for (std::size_t skip = 0; skip + count <= own.frameCount(); ++skip) {
        double match = 0;
        for (std::size_t i = 0; i < std::min<std::size_t>(count, 8); ++i)
            match += std::min(100.0, ts::psnr(own.frame(skip + i), reference.frame(i)));
        if (match > bestMatch) {
            bestMatch = match;
            best = skip;
        }
    }
    return Aligned{std::move(own), best};
}

struct Export {
    std::string name;
    fs::path file;
    std::vector<Placement> clips;
    bool copied = false;    // the lossless road, frames copied
    bool smartCut = false;  // copied but for the frames around the cuts
};

class Checker {
  public:
    explicit Checker(const fs::path& cli) : cli_(quote(cli.string()) + " ") {}

    void check(const fs::path& source, const fs::path& work) {
        const std::string name = source.filename().string();
        fs::remove_all(work);
        fs::create_directories(work);
        const auto probe = cliJson("probe " + quote(source.string()));
        if (!probe.contains("fullDurationSeconds")) {
            skip(name, "not media to the probe");
            return;
        }
        const double duration = probe["fullDurationSeconds"].get<double>();
        const bool hasVideo = probe.value("hasVideo", false);
        const bool hasAudio = probe.value("hasAudio", false);
        if (duration < 1.0) {
            skip(name, "shorter than a second");
            return;
        }
        // Cuts at odd fractions of the length fall off keyframes.
        const Placement a{0, duration * 0.25 + 0.037, duration * 0.55 + 0.021};
        const Placement b{0, duration * 0.10 + 0.013, duration * 0.40 + 0.029};
        std::vector<Export> exports;
        const auto empty = nlohmann::json::array();
        for (double gap : {0.0, kGapSeconds}) {
            const auto project = work / (gap > 0 ? "gap.vantrell" : "join.vantrell");
            const std::string path = quote(project.string());
            const bool edited =
                run(cli_ + "new " + path + " " + quote(source.string()) + " " +
                    quote(source.string()))
                        .second == 0 &&
                run(cli_ + "edit " + path + " 'trim-in 0 " + fixed(a.in, 6) + "' 'trim-out 0 " +
                    fixed(a.out, 6) + "' 'trim-in 1 " + fixed(b.in, 6) + "' 'trim-out 1 " +
                    fixed(b.out, 6) + "' 'move 0 0' 'move 1 " + fixed(a.out - a.in + gap, 6) + "'")
                        .second == 0;
            // The clips as the composition places them, in 1/600 s: on the video track, else on
            // the sound's lanes, which a clip may overlap. The status line says the road the
            // export means to take.
            const auto info = cliJson("info " + path + " --json");
            const auto lanes = hasVideo ? nlohmann::json::array({info.value("slices", empty)})
                                        : info.value("audioLanes", empty);
            std::vector<Placement> placed;
            for (const auto& lane : lanes)
                for (const auto& s : lane)
                    placed.push_back({s.value("timelineStart", 0.0) / 600,
                                      s.value("assetStart", 0.0) / 600,
                                      s.value("assetEnd", 0.0) / 600});
            std::sort(placed.begin(), placed.end(),
                      [](const auto& x, const auto& y) { return x.start < y.start; });
            if (!edited || placed.size() != 2) {
                report(name, project.stem().string(), "edit", false,
                       edited ? "not two clips" : "the command line refused");
                continue;
            }
            const std::string road = info.value("statusLine", "");
            const std::string ext = hasVideo ? ".mp4" : ".m4a";
            for (bool reencode : {false, true}) {
                Export e;
                e.name = project.stem().string() + (reencode ? "-reencode" : "-lossless");
                e.file = work / (e.name + ext);
                e.clips = placed;
                const auto [said, code] =
                    run(cli_ + "export " + path + " -o " + quote(e.file.string()) +
                        (reencode ? " --reencode" : ""));
                report(name, e.name, "export", code == 0, code == 0 ? "" : said);
                if (code != 0) continue;
                // The export says when it falls back to re-encoding.
                const bool fellBack = said.find("Re-encoding") != std::string::npos;
                e.copied = !reencode && !fellBack && road.find("Lossless") != std::string::npos;
                e.smartCut = !reencode && !fellBack && road.find("Smart cut") != std::string::npos;
                exports.push_back(e);
            }
        }
        // The reference is the source as the export's own libraries read it: GStreamer misreads
        // some sources' timing (AAC priming, MP3 delay, edit lists) but must play exports right.
        const Player reference = Player::ffmpeg;
        std::optional<DecodedVideo> sourceVideo;
        std::optional<DecodedAudio> sourceAudio;
        if (hasVideo) {
            sourceVideo = ts::decodeVideo(source, reference, work / "source", kDecode);
            if (!sourceVideo->error.empty()) {
                skip(name, "the ffmpeg tool cannot play the source: " + sourceVideo->error);
                return;
            }
        }
        if (hasAudio) {
            copiedTolerance_ = copiedAudioTolerance(source);
            sourceAudio = ts::decodeAudio(source, reference);
            if (!sourceAudio->error.empty()) sourceAudio.reset();
        }
        for (Player player : ts::kPlayers) {
            const std::string who = ts::playerName(player);
            // Pictures compare as this player scales them, so that copied frames stay identical.
            // GStreamer keeps full-range codes that the ffmpeg tool and the re-encoding road make
            // limited-range: a re-encode is compared with limited-range pictures then.
            std::optional<Aligned> scaledAlike, limitedAlike;
            if (sourceVideo && player != reference) {
                const auto dir = work / "source-own";
                auto own = ts::decodeVideo(source, player, dir, kDecode);
                // Else its pictures of the same coded frames, from a container it reads.
                if (!own.error.empty())
                    own = ts::decodeVideo(pictures(source, work / "source-video.mp4", "-c copy"),
                                          player, dir, kDecode);
                scaledAlike = alignedTo(*sourceVideo, std::move(own));
                if (fullRange(source))
                    limitedAlike = alignedTo(
                        *sourceVideo, ts::decodeVideo(pictures(source, work / "source-limited.mp4",
                                                               "-fps_mode passthrough -pix_fmt "
                                                               "yuv420p -color_range tv -c:v "
                                                               "libx264 -preset ultrafast -qp 0"),
                                                      player, dir, kDecode));
            }
            for (const auto& e : exports) {
                const std::string what = e.name + " " + who;
                const bool reencoded = !e.copied && !e.smartCut;
                const auto& alike = reencoded && limitedAlike ? limitedAlike : scaledAlike;
                if (sourceVideo)
                    checkVideo(name, what, e, player, *sourceVideo,
                               alike ? alike->first : *sourceVideo, alike ? alike->second : 0,
                               work);
                if (sourceAudio) checkAudio(name, what, e, player, *sourceAudio);
            }
        }
    }

  private:
    // What a command prints as JSON; an empty object when it prints none.
    nlohmann::json cliJson(const std::string& args) const {
        auto parsed =
            nlohmann::json::parse(ts::outputOf(cli_ + args + " 2>/dev/null"), nullptr, false);
        return parsed.is_object() ? parsed : nlohmann::json::object();
    }

    // `source` times the frames; `shown` holds them as this player shows them, `skip` frames on.
    void checkVideo(const std::string& name, const std::string& what, const Export& e,
                    Player player, const DecodedVideo& source, const DecodedVideo& shown,
                    std::size_t skip, const fs::path& work) {
        const DecodedVideo out = ts::decodeVideo(e.file, player, work / "out", kDecode);
        if (!out.error.empty()) {
            report(name, what, "decode", false, out.error);
            return;
        }
        // The count: every frame on screen during each range for a copy, the one already
        // showing at an in-point between frames too; the constant rate for a re-encode.
        const double total = e.clips.back().end();
        std::size_t expected = 0;
        for (const auto& clip : e.clips)
            for (std::size_t i = 0; i < source.frameCount(); ++i) {
                const double next = i + 1 < source.frameCount() ? source.seconds[i + 1] : 1e300;
                if (source.seconds[i] < clip.out - 0.0005 && next > clip.in + 0.0005) ++expected;
            }
        const double sourceRate = source.seconds.size() > 1
                                      ? double(source.seconds.size() - 1) /
                                            (source.seconds.back() - source.seconds.front())
                                      : 30;
        const double gap = e.clips.back().start - e.clips.front().end();
        const bool exact = e.copied || e.smartCut;
        // A gap is black frames at the source's rate from its start, the last cut short.
        if (exact && gap > 0)
            expected += static_cast<std::size_t>(std::ceil((gap - 0.0005) * sourceRate));
        const bool countOk = exact ? out.frameCount() == expected
                                   : std::abs(double(out.frameCount()) - total * sourceRate) <= 2;
        report(name, what, "frames", countOk,
               std::to_string(out.frameCount()) + " frames, " +
                   (exact ? std::to_string(expected) : fixed(total * sourceRate, 1)) + " expected");

        // Each output frame against the source frame its time maps to.
        int compared = 0, mismatched = 0, notBlack = 0;
        double worst = 1e18;
        double worstAt = 0;
        for (std::size_t k = 0; k < out.frameCount(); ++k) {
            const double t = out.seconds[k];
            // A frame right at a cut may belong to either side once times are rounded.
            bool atCut = false;
            const Placement* clip = nullptr;
            for (const auto& c : e.clips) {
                if (t >= c.start - 0.0005 && t < c.end() - 0.0005) clip = &c;
                atCut = atCut || std::abs(t - c.start) < 0.002 || std::abs(t - c.end()) < 0.002;
            }
            if (atCut) continue;
            if (!clip) {
                if (!ts::looksBlack(out.meanLuma[k])) ++notBlack;
                continue;
            }
            const auto at = frameAt(source, clip->in + (t - clip->start));
            if (!at) continue;
            const double match = ts::psnr(out.frame(k), shown.frame(*at + skip));
            ++compared;
            if (match < worst) {
                worst = match;
                worstAt = t;
            }
            const double least = e.copied     ? kCopiedPsnr
                                 : e.smartCut ? kSmartCutPsnr
                                              : kReencodedPsnr;
            if (match < least) ++mismatched;
        }
        report(name, what, "pictures", compared > 0 && mismatched == 0,
               std::to_string(mismatched) + " of " + std::to_string(compared) + " differ; worst " +
                   (std::isinf(worst) ? std::string("identical") : fixed(worst, 1) + " dB") +
                   " at " + fixed(worstAt) + " s");
        if (gap > 0)
            report(name, what, "gap-black", notBlack == 0,
                   std::to_string(notBlack) + " frames in the gap not black");
    }

    void checkAudio(const std::string& name, const std::string& what, const Export& e,
                    Player player, const DecodedAudio& source) {
        const DecodedAudio out = ts::decodeAudio(e.file, player);
        if (!out.error.empty()) {
            report(name, what, "decode-audio", false, out.error);
            return;
        }
        const double total = e.clips.back().end();
        report(name, what, "audio-length", std::abs(out.seconds() - total) <= 0.05,
               fixed(out.seconds()) + " s of " + fixed(total) + " s");
        std::string offsets;
        bool ok = true;
        for (const auto& clip : e.clips) {
            const double middle = (clip.out - clip.in) / 2;
            const auto offset = audioOffset(source, clip.in + middle, out, clip.start + middle);
            if (!offset) {
                offsets += " silent";
                continue;
            }
            offsets += " " + fixed(*offset * 1000, 1) + " ms";
            ok = ok && std::abs(*offset) <=
                           (e.copied || e.smartCut ? copiedTolerance_ : kAudioToleranceSeconds);
        }
        report(name, what, "audio-sync", ok, "offsets" + offsets);
        const double gap = e.clips.back().start - e.clips.front().end();
        if (gap > 0) {
            const float peak =
                out.peakBetween(e.clips.front().end() + 0.03, e.clips.back().start - 0.03);
            report(name, what, "gap-silent", peak < 0.001, "peak " + fixed(peak, 4));
        }
    }

    std::string cli_;  // quoted, and a space
    double copiedTolerance_ = kAudioToleranceSeconds;
};

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 4 && args[0] == "--cli" && args[2] == "--one") {
        // One file's checks, in a process that the time limit stops with all it started.
        const fs::path work =
            fs::temp_directory_path() / ("check-media-" + std::to_string(::getpid()));
        Checker(fs::path(args[1])).check(args[3], work);
        fs::remove_all(work);
        return 0;
    }
    if (args.size() != 3 || args[0] != "--cli") {
        std::cerr << "usage: check_media --cli PATH/vantrell-cli DIR\n";
        return 2;
    }
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(args[2]))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::map<std::string, std::pair<int, int>> byCheck;  // passed, failed
    int skipped = 0, failed = 0;
    // Prints the result lines of `file` among `output`'s lines and counts them by check.
    const auto tally = [&](const std::string& file, const std::string& output) {
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            const bool passed = line.starts_with("PASS "), skipping = line.starts_with("SKIP ");
            if (!passed && !skipping && !line.starts_with("FAIL ")) continue;
            std::cout << line << "\n" << std::flush;
            if (skipping) {
                ++skipped;
                continue;
            }
            // "PASS file  what  check  detail": only the file's name may hold two spaces.
            const auto check = line.find("  ", 5 + file.size() + 2) + 2;
            auto& counts = byCheck[line.substr(check, line.find("  ", check) - check)];
            ++(passed ? counts.first : counts.second);
            failed += !passed;
        }
    };
    for (const auto& file : files) {
        const std::string name = file.filename().string();
        const auto [output, status] =
            run("timeout -k 5 " + std::to_string(kFileSeconds) + " " +
                quote(fs::canonical("/proc/self/exe").string()) + " --cli " +
                quote(fs::absolute(args[1]).string()) + " --one " + quote(file.string()));
        tally(name, output);
        // 124 when the limit ended it, 137 when it had to be killed.
        if (status == 124 || status == 137)
            tally(name,
                  resultLine(name, "all", "time-limit", false,
                             "no result within " + std::to_string(kFileSeconds) + " s; stopped"));
    }
    std::cout << "\nsummary: " << files.size() << " files, " << skipped << " skipped\n";
    int passed = 0;
    for (const auto& [check, counts] : byCheck) {
        std::cout << "  " << check << ": " << counts.first << " passed, " << counts.second
                  << " failed\n";
        passed += counts.first;
    }
    std::cout << "  all: " << passed << " passed, " << failed << " failed\n";
    return failed == 0 ? 0 : 1;
}
