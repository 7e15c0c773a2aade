#include "model/snapshot.h"

#include <cctype>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include <nlohmann/json.hpp>

namespace model {

namespace {

using nlohmann::json;

// Decoding errors travel as this exception inside this file and become a Result at the
// public functions.
struct DecodeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct EncodeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string where(std::string_view context, std::string_view key) {
    return std::string(context) + "key \"" + std::string(key) + "\"";
}

const json* member(const json& object, std::string_view key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return nullptr;  // null reads as absent
    return &*it;
}

const json& required(const json& object, std::string_view key, std::string_view context) {
    const json* v = member(object, key);
    if (!v) throw DecodeError(where(context, key) + " is missing");
    return *v;
}

double number(const json& v, std::string_view context, std::string_view key) {
    if (!v.is_number()) throw DecodeError(where(context, key) + " must be a number");
    double d = v.get<double>();
    if (!std::isfinite(d)) throw DecodeError(where(context, key) + " must be a finite number");
    return d;
}

std::optional<double> optionalNumber(const json& o, std::string_view key, std::string_view ctx) {
    const json* v = member(o, key);
    if (!v) return std::nullopt;
    return number(*v, ctx, key);
}

const std::string& text(const json& v, std::string_view context, std::string_view key) {
    if (!v.is_string()) throw DecodeError(where(context, key) + " must be a string");
    return v.get_ref<const std::string&>();
}

common::Uuid uuid(const json& v, std::string_view context, std::string_view key) {
    auto parsed = common::Uuid::parse(text(v, context, key));
    if (!parsed) throw DecodeError(where(context, key) + " is not a UUID");
    return *parsed;
}

bool boolean(const json& v, std::string_view context, std::string_view key) {
    if (!v.is_boolean()) throw DecodeError(where(context, key) + " must be true or false");
    return v.get<bool>();
}

double finite(double v, std::string_view key) {
    if (!std::isfinite(v))
        throw EncodeError("the value of \"" + std::string(key) + "\" is not a finite number");
    return v;
}

json encodeClip(const VantrellSnapshotClip& c) {
    json o = json::object();
    o["id"] = c.id.toString();
    o["url"] = fileURLString(c.url);
    if (c.bookmark) o["bookmark"] = base64Encode(*c.bookmark);
    o["inSeconds"] = finite(c.inSeconds, "inSeconds");
    o["outSeconds"] = finite(c.outSeconds, "outSeconds");
    o["startOnTimeline"] = finite(c.startOnTimeline, "startOnTimeline");
    if (c.streamMask) o["streamMask"] = std::string(toString(*c.streamMask));
    if (c.linkGroupID) o["linkGroupID"] = c.linkGroupID->toString();
    if (c.rateMultiplier) o["rateMultiplier"] = finite(*c.rateMultiplier, "rateMultiplier");
    if (c.isReversed) o["isReversed"] = *c.isReversed;
    if (c.forwardInSeconds) o["forwardInSeconds"] = finite(*c.forwardInSeconds, "forwardInSeconds");
    if (c.forwardOutSeconds)
        o["forwardOutSeconds"] = finite(*c.forwardOutSeconds, "forwardOutSeconds");
    return o;
}

VantrellSnapshotClip decodeClip(const json& o, std::string_view ctx) {
    if (!o.is_object()) throw DecodeError(std::string(ctx) + "is not an object");
    VantrellSnapshotClip c;
    c.id = uuid(required(o, "id", ctx), ctx, "id");
    const std::string& url = text(required(o, "url", ctx), ctx, "url");
    // A URL that names no local file still reads: its clip opens as a placeholder, and the
    // text is kept as it was so that a save writes it back unchanged.
    auto path = pathFromFileURL(url);
    c.url = path ? *path : std::filesystem::path(url);
    if (const json* b = member(o, "bookmark")) {
        auto bytes = base64Decode(text(*b, ctx, "bookmark"));
        if (!bytes) throw DecodeError(where(ctx, "bookmark") + " is not Base64");
        c.bookmark = std::move(*bytes);
    }
    c.inSeconds = number(required(o, "inSeconds", ctx), ctx, "inSeconds");
    c.outSeconds = number(required(o, "outSeconds", ctx), ctx, "outSeconds");
    c.startOnTimeline = number(required(o, "startOnTimeline", ctx), ctx, "startOnTimeline");
    if (const json* m = member(o, "streamMask")) {
        const std::string& raw = text(*m, ctx, "streamMask");
        c.streamMask = parseStreamMask(raw);
        if (!c.streamMask)
            throw DecodeError(where(ctx, "streamMask") + " has unknown value \"" + raw + "\"");
    }
    if (const json* g = member(o, "linkGroupID")) c.linkGroupID = uuid(*g, ctx, "linkGroupID");
    c.rateMultiplier = optionalNumber(o, "rateMultiplier", ctx);
    if (const json* r = member(o, "isReversed")) c.isReversed = boolean(*r, ctx, "isReversed");
    c.forwardInSeconds = optionalNumber(o, "forwardInSeconds", ctx);
    c.forwardOutSeconds = optionalNumber(o, "forwardOutSeconds", ctx);
    return c;
}

json encodeSnapshotJson(const VantrellSnapshot& s) {
    json o = json::object();
    o["version"] = s.version;
    json clips = json::array();
    for (const auto& c : s.clips) clips.push_back(encodeClip(c));
    o["clips"] = std::move(clips);
    o["playheadGlobal"] = finite(s.playheadGlobal, "playheadGlobal");
    o["zoomFactor"] = finite(s.zoomFactor, "zoomFactor");
    if (s.preferLossless) o["preferLossless"] = *s.preferLossless;
    if (s.smallClipMode) o["smallClipMode"] = std::string(toString(*s.smallClipMode));
    if (s.cropInsetTop) o["cropInsetTop"] = finite(*s.cropInsetTop, "cropInsetTop");
    if (s.cropInsetLeading) o["cropInsetLeading"] = finite(*s.cropInsetLeading, "cropInsetLeading");
    if (s.cropInsetTrailing)
        o["cropInsetTrailing"] = finite(*s.cropInsetTrailing, "cropInsetTrailing");
    if (s.cropInsetBottom) o["cropInsetBottom"] = finite(*s.cropInsetBottom, "cropInsetBottom");
    return o;
}

VantrellSnapshot decodeSnapshotJson(const json& o) {
    constexpr std::string_view ctx = "";
    if (!o.is_object()) throw DecodeError("the top level is not an object");
    VantrellSnapshot s;
    const json& version = required(o, "version", ctx);
    double v = number(version, ctx, "version");
    if (v != std::trunc(v) || std::abs(v) > 2147483647.0)
        throw DecodeError("key \"version\" must be an integer");
    s.version = static_cast<int>(v);
    const json& clips = required(o, "clips", ctx);
    if (!clips.is_array()) throw DecodeError("key \"clips\" must be an array");
    if (clips.size() > kMostSnapshotClips)
        throw DecodeError("it holds " + std::to_string(clips.size()) + " clips, more than the " +
                          std::to_string(kMostSnapshotClips) + " a project may hold");
    for (std::size_t i = 0; i < clips.size(); ++i)
        s.clips.push_back(decodeClip(clips[i], "clip " + std::to_string(i + 1) + ": "));
    s.playheadGlobal = number(required(o, "playheadGlobal", ctx), ctx, "playheadGlobal");
    s.zoomFactor = number(required(o, "zoomFactor", ctx), ctx, "zoomFactor");
    if (const json* p = member(o, "preferLossless"))
        s.preferLossless = boolean(*p, ctx, "preferLossless");
    if (const json* m = member(o, "smallClipMode")) {
        const std::string& raw = text(*m, ctx, "smallClipMode");
        s.smallClipMode = parseSmallClipMode(raw);
        if (!s.smallClipMode)
            throw DecodeError("key \"smallClipMode\" has unknown value \"" + raw + "\"");
    }
    s.cropInsetTop = optionalNumber(o, "cropInsetTop", ctx);
    s.cropInsetLeading = optionalNumber(o, "cropInsetLeading", ctx);
    s.cropInsetTrailing = optionalNumber(o, "cropInsetTrailing", ctx);
    s.cropInsetBottom = optionalNumber(o, "cropInsetBottom", ctx);
    return s;
}

template <typename F>
auto decoding(F&& f) -> common::Result<decltype(f())> {
    try {
        return f();
    } catch (const DecodeError& e) {
        return common::Error{std::string("The project data is damaged: ") + e.what() + "."};
    }
}

template <typename F>
auto encoding(F&& f) -> common::Result<decltype(f())> {
    try {
        return f();
    } catch (const EncodeError& e) {
        return common::Error{std::string("The project can't be saved: ") + e.what() + "."};
    }
}

bool isUnreservedInPath(unsigned char c) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("-._~/!$&'()*+,;=:@").find(static_cast<char>(c)) !=
           std::string_view::npos;
}

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

common::Result<nlohmann::json> toJson(const VantrellSnapshotClip& clip) {
    return encoding([&] { return encodeClip(clip); });
}

common::Result<VantrellSnapshotClip> clipFromJson(const nlohmann::json& json) {
    return decoding([&] { return decodeClip(json, ""); });
}

common::Result<nlohmann::json> toJson(const VantrellSnapshot& snapshot) {
    return encoding([&] { return encodeSnapshotJson(snapshot); });
}

common::Result<VantrellSnapshot> snapshotFromJson(const nlohmann::json& json) {
    return decoding([&] { return decodeSnapshotJson(json); });
}

common::Result<std::string> encodeSnapshot(const VantrellSnapshot& snapshot) {
    auto j = toJson(snapshot);
    if (!j) return j.error();
    // nlohmann's object keeps its keys in sorted order, which the file format asks for.
    return j->dump(2) + "\n";
}

common::Result<VantrellSnapshot> decodeSnapshot(std::string_view text) {
    if (text.size() > kLargestSnapshotBytes)
        return common::Error{"The project data is too large: " + std::to_string(text.size()) +
                             " bytes, more than the " + std::to_string(kLargestSnapshotBytes) +
                             " a project may take."};
    json parsed = json::parse(text, nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded())
        return common::Error{"The project data is damaged: it is not valid JSON."};
    return snapshotFromJson(parsed);
}

std::string fileURLString(const std::filesystem::path& absolutePath) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    // Not a local path: the text of a URL that named no file, kept as it was read.
    if (!absolutePath.is_absolute()) return absolutePath.string();
    std::string url = "file://";
    for (unsigned char c : absolutePath.string()) {
        if (isUnreservedInPath(c)) {
            url += static_cast<char>(c);
        } else {
            url += '%';
            url += kHex[c >> 4];
            url += kHex[c & 0x0F];
        }
    }
    return url;
}

std::optional<std::filesystem::path> pathFromFileURL(std::string_view url) {
    constexpr std::string_view scheme = "file://";
    if (url.size() < scheme.size()) return std::nullopt;
    for (std::size_t i = 0; i < scheme.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(url[i])) != scheme[i]) return std::nullopt;
    url.remove_prefix(scheme.size());
    if (url.starts_with("localhost/")) url.remove_prefix(9);
    if (!url.starts_with('/')) return std::nullopt;
    std::string path;
    for (std::size_t i = 0; i < url.size(); ++i) {
        if (url[i] == '%') {
            if (i + 2 >= url.size()) return std::nullopt;
            auto hex = [](char c) -> int {
                if (c >= '0' && c <= '9') return c - '0';
                if (c >= 'A' && c <= 'F') return c - 'A' + 10;
                if (c >= 'a' && c <= 'f') return c - 'a' + 10;
                return -1;
            };
            int hi = hex(url[i + 1]), lo = hex(url[i + 2]);
            if (hi < 0 || lo < 0) return std::nullopt;
            path += static_cast<char>(hi * 16 + lo);
            i += 2;
        } else if (url[i] == '?' || url[i] == '#') {
            break;
        } else {
            path += url[i];
        }
    }
    return std::filesystem::path(path);
}

std::string base64Encode(const Bytes& bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        unsigned v = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        out += kBase64[v >> 18];
        out += kBase64[(v >> 12) & 63];
        out += kBase64[(v >> 6) & 63];
        out += kBase64[v & 63];
    }
    if (std::size_t rest = bytes.size() - i; rest > 0) {
        unsigned v = bytes[i] << 16;
        if (rest == 2) v |= bytes[i + 1] << 8;
        out += kBase64[v >> 18];
        out += kBase64[(v >> 12) & 63];
        out += rest == 2 ? kBase64[(v >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::optional<Bytes> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    Bytes out;
    out.reserve(text.size() / 4 * 3);
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    for (std::size_t i = 0; i < text.size(); i += 4) {
        int pad = 0;
        unsigned v = 0;
        for (std::size_t j = 0; j < 4; ++j) {
            char c = text[i + j];
            if (c == '=' && i + 4 == text.size() && j >= 2) {
                ++pad;
                v <<= 6;
                continue;
            }
            int d = value(c);
            if (d < 0 || pad > 0) return std::nullopt;
            v = (v << 6) | static_cast<unsigned>(d);
        }
        out.push_back(static_cast<std::uint8_t>(v >> 16));
        if (pad < 2) out.push_back(static_cast<std::uint8_t>((v >> 8) & 0xFF));
        if (pad < 1) out.push_back(static_cast<std::uint8_t>(v & 0xFF));
    }
    return out;
}

}  // namespace model
