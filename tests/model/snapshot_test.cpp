#include "model/snapshot.h"

#include <cmath>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using model::VantrellSnapshot;
using model::VantrellSnapshotClip;
using nlohmann::json;

VantrellSnapshotClip fullRecord() {
    VantrellSnapshotClip r{common::Uuid::random(),
                           "/Media/Holiday 2024/beach #2.mov",
                           model::Bytes{0, 1, 2, 250, 255},
                           1.25,
                           9.5,
                           3};
    r.streamMask = model::StreamMask::videoOnly;
    r.linkGroupID = common::Uuid::random();
    r.rateMultiplier = 2;
    r.isReversed = true;
    r.forwardInSeconds = 0.5;
    r.forwardOutSeconds = 8.75;
    return r;
}

VantrellSnapshot fullSnapshot() {
    VantrellSnapshot s;
    s.clips = {fullRecord(), fullRecord()};
    s.playheadGlobal = 4.5;
    s.zoomFactor = 2.5;
    s.preferLossless = true;
    s.smallClipMode = model::SmallClipMode::centerNative;
    s.cropInsetTop = 0.1;
    s.cropInsetLeading = 0.2;
    s.cropInsetTrailing = 0.3;
    s.cropInsetBottom = 0.4;
    return s;
}

constexpr const char* kClipID = "8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B7C";

// A small valid file, to be broken one key at a time.
json validJson() {
    return json::parse(R"({"version": 1, "playheadGlobal": 0, "zoomFactor": 1, "clips": [{
        "id": "8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B7C", "url": "file:///media/a.mov",
        "inSeconds": 0, "outSeconds": 2, "startOnTimeline": 0}]})");
}

std::string encoded(const VantrellSnapshot& s) {
    auto text = model::encodeSnapshot(s);
    EXPECT_TRUE(text.ok()) << (text.ok() ? "" : text.error().message);
    return text.ok() ? *text : std::string();
}

// The keys written at one indentation depth, in the order they stand in the text.
std::vector<std::string> keysAtIndent(const std::string& text, std::size_t indent) {
    std::vector<std::string> keys;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() <= indent || line.compare(0, indent, std::string(indent, ' ')) != 0 ||
            line[indent] != '"')
            continue;
        keys.push_back(line.substr(indent + 1, line.find('"', indent + 1) - indent - 1));
    }
    return keys;
}

// Writing.

TEST(Snapshot, KeysAreWrittenSortedAtBothLevels) {
    std::string text = encoded(fullSnapshot());
    EXPECT_EQ(
        keysAtIndent(text, 2),
        (std::vector<std::string>{"clips", "cropInsetBottom", "cropInsetLeading", "cropInsetTop",
                                  "cropInsetTrailing", "playheadGlobal", "preferLossless",
                                  "smallClipMode", "version", "zoomFactor"}));
    const std::vector<std::string> clipKeys{
        "bookmark",       "forwardInSeconds", "forwardOutSeconds", "id",
        "inSeconds",      "isReversed",       "linkGroupID",       "outSeconds",
        "rateMultiplier", "startOnTimeline",  "streamMask",        "url"};
    std::vector<std::string> twoClips = clipKeys;
    twoClips.insert(twoClips.end(), clipKeys.begin(), clipKeys.end());
    EXPECT_EQ(keysAtIndent(text, 6), twoClips);
}

TEST(Snapshot, AbsentValuesAreLeftOutRatherThanWrittenAsNull) {
    VantrellSnapshot s;
    s.clips = {{common::Uuid::random(), "/m/a.mov"}};
    std::string text = encoded(s);
    EXPECT_EQ(text.find("null"), std::string::npos);
    EXPECT_EQ(keysAtIndent(text, 2),
              (std::vector<std::string>{"clips", "playheadGlobal", "version", "zoomFactor"}));
    EXPECT_EQ(keysAtIndent(text, 6), (std::vector<std::string>{"id", "inSeconds", "outSeconds",
                                                               "startOnTimeline", "url"}));
}

TEST(Snapshot, IdsAreWrittenUpperCaseAndReadInEitherCase) {
    VantrellSnapshot s = fullSnapshot();
    json j = *model::toJson(s);
    EXPECT_EQ(j["clips"][0]["id"], s.clips[0].id.toString());
    EXPECT_EQ(j["clips"][0]["id"].get<std::string>().find_first_of("abcdef"), std::string::npos);
    EXPECT_EQ(j["clips"][0]["linkGroupID"], s.clips[0].linkGroupID->toString());

    json lower = validJson();
    lower["clips"][0]["id"] = "8a1d3c52-7e4b-4f0a-9c1d-2b3e4f5a6b7c";
    auto decoded = model::snapshotFromJson(lower);
    ASSERT_TRUE(decoded.ok());
    EXPECT_EQ(decoded->clips[0].id.toString(), kClipID);
}

TEST(Snapshot, EveryFieldSurvivesARoundTripAlsoOfAClipRecordOnItsOwn) {
    VantrellSnapshot s = fullSnapshot();
    auto back = model::decodeSnapshot(encoded(s));
    ASSERT_TRUE(back.ok()) << back.error().message;
    EXPECT_EQ(*back, s);
    auto j = model::toJson(s.clips[0]);
    ASSERT_TRUE(j.ok());
    auto record = model::clipFromJson(*j);
    ASSERT_TRUE(record.ok()) << record.error().message;
    EXPECT_EQ(*record, s.clips[0]);
}

TEST(Snapshot, NonFiniteNumbersFailToEncode) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const std::vector<std::pair<const char*, std::function<void(VantrellSnapshot&)>>> cases = {
        {"inSeconds", [&](VantrellSnapshot& s) { s.clips[0].inSeconds = nan; }},
        {"outSeconds", [&](VantrellSnapshot& s) { s.clips[1].outSeconds = inf; }},
        {"startOnTimeline", [&](VantrellSnapshot& s) { s.clips[0].startOnTimeline = -inf; }},
        {"rateMultiplier", [&](VantrellSnapshot& s) { s.clips[0].rateMultiplier = nan; }},
        {"forwardOutSeconds", [&](VantrellSnapshot& s) { s.clips[0].forwardOutSeconds = inf; }},
        {"playheadGlobal", [&](VantrellSnapshot& s) { s.playheadGlobal = nan; }},
        {"zoomFactor", [&](VantrellSnapshot& s) { s.zoomFactor = inf; }},
        {"cropInsetBottom", [&](VantrellSnapshot& s) { s.cropInsetBottom = nan; }},
    };
    for (const auto& [key, spoil] : cases) {
        VantrellSnapshot s = fullSnapshot();
        spoil(s);
        auto text = model::encodeSnapshot(s);
        ASSERT_FALSE(text.ok()) << key;
        EXPECT_NE(text.error().message.find(key), std::string::npos) << text.error().message;
    }
}

// Reading.

TEST(Snapshot, AnyVersionOpensButOneMustBeThere) {
    for (int version : {1, 99, 0, -3}) {
        json j = validJson();
        j["version"] = version;
        auto s = model::snapshotFromJson(j);
        ASSERT_TRUE(s.ok()) << version;
        EXPECT_EQ(s->version, version);
    }
    json j = validJson();
    j.erase("version");
    auto s = model::snapshotFromJson(j);
    ASSERT_FALSE(s.ok());
    EXPECT_NE(s.error().message.find("version"), std::string::npos) << s.error().message;
}

TEST(Snapshot, ReadingIgnoresUnknownKeysAndTakesNullOrNothingAsAbsent) {
    json j = validJson();
    j["futureSetting"] = {{"nested", true}};
    j["clips"][0]["colourGrade"] = "warm";
    j["smallClipMode"] = nullptr;
    j["clips"][0]["bookmark"] = nullptr;
    auto s = model::snapshotFromJson(j);
    ASSERT_TRUE(s.ok()) << s.error().message;
    VantrellSnapshot expected;
    expected.clips = {{*common::Uuid::parse(kClipID), "/media/a.mov", {}, 0, 2, 0}};
    EXPECT_EQ(*s, expected);

    j["preferLossless"] = true;  // from older files
    j["smallClipMode"] = "fill";
    j["clips"][0]["streamMask"] = "both";
    s = model::snapshotFromJson(j);
    ASSERT_TRUE(s.ok()) << s.error().message;
    expected.preferLossless = true;
    expected.smallClipMode = model::SmallClipMode::fill;
    expected.clips[0].streamMask = model::StreamMask::both;
    EXPECT_EQ(*s, expected);
}

TEST(Snapshot, TextThatIsNotJSONOrANumberBeyondADoubleFailsToDecode) {
    for (const char* text : {"", "{", "not json", "{\"version\": 1,}", "{} trailing"}) {
        auto s = model::decodeSnapshot(text);
        ASSERT_FALSE(s.ok()) << text;
        EXPECT_NE(s.error().message.find("damaged"), std::string::npos);
    }
    std::string text = validJson().dump();
    text.replace(text.find("\"outSeconds\":2"), 14, "\"outSeconds\":1e999");
    EXPECT_FALSE(model::decodeSnapshot(text).ok());
}

TEST(Snapshot, EveryMalformedFileFailsToDecode) {
    const std::vector<std::pair<const char*, std::function<void(json&)>>> cases = {
        {"top level is an array", [](json& j) { j = json::array({j}); }},
        {"no clips", [](json& j) { j.erase("clips"); }},
        {"no playheadGlobal", [](json& j) { j.erase("playheadGlobal"); }},
        {"no zoomFactor", [](json& j) { j.erase("zoomFactor"); }},
        {"null zoomFactor", [](json& j) { j["zoomFactor"] = nullptr; }},
        {"clip without id", [](json& j) { j["clips"][0].erase("id"); }},
        {"clip without url", [](json& j) { j["clips"][0].erase("url"); }},
        {"clip without inSeconds", [](json& j) { j["clips"][0].erase("inSeconds"); }},
        {"clip without outSeconds", [](json& j) { j["clips"][0].erase("outSeconds"); }},
        {"clip without startOnTimeline", [](json& j) { j["clips"][0].erase("startOnTimeline"); }},
        {"version as text", [](json& j) { j["version"] = "1"; }},
        {"fractional version", [](json& j) { j["version"] = 1.5; }},
        {"clips as object", [](json& j) { j["clips"] = json::object(); }},
        {"clip as text", [](json& j) { j["clips"][0] = "a.mov"; }},
        {"playhead as text", [](json& j) { j["playheadGlobal"] = "0"; }},
        {"zoom as boolean", [](json& j) { j["zoomFactor"] = true; }},
        {"preferLossless as text", [](json& j) { j["preferLossless"] = "yes"; }},
        {"smallClipMode as number", [](json& j) { j["smallClipMode"] = 2; }},
        {"inset as text", [](json& j) { j["cropInsetTop"] = "0.1"; }},
        {"inSeconds as text", [](json& j) { j["clips"][0]["inSeconds"] = "0"; }},
        {"id as number", [](json& j) { j["clips"][0]["id"] = 5; }},
        {"url as number", [](json& j) { j["clips"][0]["url"] = 5; }},
        {"bookmark as number", [](json& j) { j["clips"][0]["bookmark"] = 5; }},
        {"streamMask as number", [](json& j) { j["clips"][0]["streamMask"] = 1; }},
        {"rateMultiplier as text", [](json& j) { j["clips"][0]["rateMultiplier"] = "2"; }},
        {"isReversed as number", [](json& j) { j["clips"][0]["isReversed"] = 1; }},
        {"forwardInSeconds as text", [](json& j) { j["clips"][0]["forwardInSeconds"] = "x"; }},
        {"infinite number",
         [](json& j) { j["clips"][0]["outSeconds"] = std::numeric_limits<double>::infinity(); }},
        {"id not a UUID", [](json& j) { j["clips"][0]["id"] = "clip-1"; }},
        {"id in braces",
         [](json& j) { j["clips"][0]["id"] = "{8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B7}"; }},
        {"linkGroupID not a UUID", [](json& j) { j["clips"][0]["linkGroupID"] = "group"; }},
        {"unknown streamMask", [](json& j) { j["clips"][0]["streamMask"] = "mute"; }},
        {"streamMask in other case", [](json& j) { j["clips"][0]["streamMask"] = "Both"; }},
        {"unknown smallClipMode", [](json& j) { j["smallClipMode"] = "stretch"; }},
        {"url of another scheme", [](json& j) { j["clips"][0]["url"] = "http://host/a.mov"; }},
        {"url as a plain path", [](json& j) { j["clips"][0]["url"] = "/media/a.mov"; }},
        {"relative file url", [](json& j) { j["clips"][0]["url"] = "file:a.mov"; }},
        {"url with a bad escape", [](json& j) { j["clips"][0]["url"] = "file:///a%zz.mov"; }},
        {"bookmark not Base64", [](json& j) { j["clips"][0]["bookmark"] = "@@@@"; }},
    };
    for (const auto& [name, spoil] : cases) {
        json j = validJson();
        spoil(j);
        auto fromJson = model::snapshotFromJson(j);
        EXPECT_FALSE(fromJson.ok()) << name;
        auto fromText = model::decodeSnapshot(j.dump());
        EXPECT_FALSE(fromText.ok()) << name;
    }
}

TEST(Snapshot, ADecodingErrorNamesTheClipAndKey) {
    json j = validJson();
    j["clips"].push_back(j["clips"][0]);
    j["clips"][1].erase("outSeconds");
    auto s = model::snapshotFromJson(j);
    ASSERT_FALSE(s.ok());
    EXPECT_NE(s.error().message.find("clip 2"), std::string::npos) << s.error().message;
    EXPECT_NE(s.error().message.find("outSeconds"), std::string::npos) << s.error().message;
}

// File URLs.

TEST(FileURL, SpecialCharactersArePercentEncodedAndAwkwardPathsSurviveARoundTrip) {
    EXPECT_EQ(model::fileURLString("/Movies/My Clip #1 100%.mov"),
              "file:///Movies/My%20Clip%20%231%20100%25.mov");
    EXPECT_EQ(model::fileURLString("/a/\xC3\xA9t\xC3\xA9.mov"), "file:///a/%C3%A9t%C3%A9.mov");
    EXPECT_EQ(model::fileURLString("/what?.mov"), "file:///what%3F.mov");
    for (const char* path :
         {"/plain/a.mov", "/with space/and  two.mov",
          "/\xC3\x9Cn\xC3\xAF\x63\xC3\xB8\x64\xC3\xA9/\xE6\x98\xA0\xE5\x83\x8F.mov",
          "/100%/50%25.mov", "/take #3/#.mov", "/q?/a?b=c.mov", "/odd;chars,+&=@$'()!~*/x.mov",
          "/tab\tand\nnewline.mov"}) {
        auto back = model::pathFromFileURL(model::fileURLString(path));
        ASSERT_TRUE(back) << path;
        EXPECT_EQ(back->string(), path);
    }
}

TEST(FileURL, ReadsLocalhostAndAnUpperCaseSchemeAndRejectsWhatIsNotAnAbsoluteFileURL) {
    EXPECT_EQ(model::pathFromFileURL("file://localhost/a/b.mov"),
              std::filesystem::path("/a/b.mov"));
    EXPECT_EQ(model::pathFromFileURL("FILE:///a/b.mov"), std::filesystem::path("/a/b.mov"));
    EXPECT_EQ(model::pathFromFileURL("file:///a%2fb%20c"), std::filesystem::path("/a/b c"));
    for (const char* url :
         {"", "file:/", "file:", "file://host/a.mov", "file:a.mov", "https:///a.mov", "/a.mov",
          "file:///a%2", "file:///a%g0", "file:///a%"}) {
        EXPECT_FALSE(model::pathFromFileURL(url)) << url;
    }
}

// Base64.

model::Bytes asBytes(std::string_view s) {
    return model::Bytes(s.begin(), s.end());
}

TEST(Base64, MatchesTheStandardVectorsWithEachPaddingLength) {
    const std::vector<std::pair<std::string, std::string>> vectors = {{"", ""},
                                                                      {"f", "Zg=="},
                                                                      {"fo", "Zm8="},
                                                                      {"foo", "Zm9v"},
                                                                      {"foob", "Zm9vYg=="},
                                                                      {"fooba", "Zm9vYmE="},
                                                                      {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, coded] : vectors) {
        EXPECT_EQ(model::base64Encode(asBytes(plain)), coded);
        EXPECT_EQ(model::base64Decode(coded), asBytes(plain)) << coded;
    }
}

TEST(Base64, EveryByteValueSurvivesARoundTrip) {
    model::Bytes all;
    for (int i = 0; i < 256; ++i) all.push_back(static_cast<std::uint8_t>(i));
    for (std::size_t cut = 253; cut <= 256; ++cut) {
        model::Bytes part(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(cut));
        std::string coded = model::base64Encode(part);
        EXPECT_EQ(coded.size() % 4, 0u);
        EXPECT_EQ(model::base64Decode(coded), part) << cut;
    }
}

TEST(Base64, RejectsMalformedText) {
    for (const char* bad : {"Zg=", "Zg", "Z===", "====", "Zg=v", "Zg==Zm9v", "Zm9*", "Zm9 ",
                            "Zm9v\n", "-_-_", "Zm9vY", "Zm=v"}) {
        EXPECT_FALSE(model::base64Decode(bad)) << bad;
    }
}

}  // namespace
