#include "model/snapshot.h"

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
using nlohmann::json;

VantrellSnapshot fullSnapshot() {
    model::VantrellSnapshotClip r{common::Uuid::random(),
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
    VantrellSnapshot s;
    s.clips = {r, r};
    s.clips[1].id = common::Uuid::random();
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

// A small valid file, to be broken one key at a time.
json validJson() {
    return json::parse(R"({"version": 1, "playheadGlobal": 0, "zoomFactor": 1, "clips": [{
        "id": "8a1d3c52-7e4b-4f0a-9c1d-2b3e4f5a6b7c", "url": "file:///media/a.mov",
        "inSeconds": 0, "outSeconds": 2, "startOnTimeline": 0}]})");
}

// The keys written at one indentation depth, in the order they stand in the text.
std::vector<std::string> keysAtIndent(const std::string& text, std::size_t indent) {
    std::vector<std::string> keys;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.size() > indent && line.find_first_not_of(' ') == indent && line[indent] == '"')
            keys.push_back(line.substr(indent + 1, line.find('"', indent + 1) - indent - 1));
    return keys;
}

TEST(Snapshot, EveryFieldSurvivesARoundTripUnderSortedKeysWithUpperCaseIds) {
    VantrellSnapshot s = fullSnapshot();
    auto text = model::encodeSnapshot(s);
    ASSERT_TRUE(text.ok());
    EXPECT_EQ(
        keysAtIndent(*text, 2),
        (std::vector<std::string>{"clips", "cropInsetBottom", "cropInsetLeading", "cropInsetTop",
                                  "cropInsetTrailing", "playheadGlobal", "preferLossless",
                                  "smallClipMode", "version", "zoomFactor"}));
    auto clipKeys = keysAtIndent(*text, 6);
    ASSERT_EQ(clipKeys.size(), 24u);
    EXPECT_EQ(std::vector(clipKeys.begin(), clipKeys.begin() + 12),
              (std::vector<std::string>{"bookmark", "forwardInSeconds", "forwardOutSeconds", "id",
                                        "inSeconds", "isReversed", "linkGroupID", "outSeconds",
                                        "rateMultiplier", "startOnTimeline", "streamMask", "url"}));
    EXPECT_NE(text->find(s.clips[0].id.toString()), std::string::npos);
    auto back = model::decodeSnapshot(*text);
    ASSERT_TRUE(back.ok()) << back.error().message;
    EXPECT_EQ(*back, s);

    VantrellSnapshot bare;
    bare.clips = {{common::Uuid::random(), "/m/a.mov"}};
    text = model::encodeSnapshot(bare);
    EXPECT_EQ(text->find("null"), std::string::npos) << "absent values are left out";
    EXPECT_EQ(keysAtIndent(*text, 6), (std::vector<std::string>{"id", "inSeconds", "outSeconds",
                                                                "startOnTimeline", "url"}));
}

TEST(Snapshot, NonFiniteNumbersFailToEncodeNamingTheKey) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<std::pair<const char*, std::function<void(VantrellSnapshot&)>>> cases = {
        {"outSeconds", [&](VantrellSnapshot& s) { s.clips[1].outSeconds = -nan; }},
        {"forwardOutSeconds", [&](VantrellSnapshot& s) { s.clips[0].forwardOutSeconds = nan; }},
        {"zoomFactor",
         [&](VantrellSnapshot& s) { s.zoomFactor = std::numeric_limits<double>::infinity(); }},
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

TEST(Snapshot, ReadingIgnoresUnknownKeysAndTakesNullAsAbsentAndAnyWholeVersion) {
    json j = validJson();
    j["version"] = -3;
    j["futureSetting"] = {{"nested", true}};
    j["clips"][0]["colourGrade"] = "warm";
    j["smallClipMode"] = nullptr;
    j["clips"][0]["bookmark"] = nullptr;
    j["preferLossless"] = true;  // from older files
    j["clips"][1] = j["clips"][0];
    j["clips"][1]["url"] = "https://example.com/far.mov";  // opens as a placeholder
    auto s = model::snapshotFromJson(j);
    ASSERT_TRUE(s.ok()) << s.error().message;
    VantrellSnapshot expected;
    expected.version = -3;
    expected.preferLossless = true;
    expected.clips = {{*common::Uuid::parse("8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B7C"),
                       "/media/a.mov",
                       {},
                       0,
                       2,
                       0}};
    expected.clips.push_back(expected.clips[0]);
    expected.clips[1].url = "https://example.com/far.mov";
    EXPECT_EQ(*s, expected);
    auto saved = model::encodeSnapshot(*s);
    EXPECT_NE(saved->find("\"https://example.com/far.mov\""), std::string::npos) << "unchanged";
}

TEST(Snapshot, EveryMalformedFileFailsToDecodeAndTheErrorNamesTheClipAndKey) {
    const std::vector<std::pair<const char*, std::function<void(json&)>>> cases = {
        {"top level is an array", [](json& j) { j = json::array({j}); }},
        {"no version", [](json& j) { j.erase("version"); }},
        {"no clips", [](json& j) { j.erase("clips"); }},
        {"no playheadGlobal", [](json& j) { j.erase("playheadGlobal"); }},
        {"null zoomFactor", [](json& j) { j["zoomFactor"] = nullptr; }},
        {"clip without id", [](json& j) { j["clips"][0].erase("id"); }},
        {"clip without url", [](json& j) { j["clips"][0].erase("url"); }},
        {"clip without startOnTimeline", [](json& j) { j["clips"][0].erase("startOnTimeline"); }},
        {"version as text", [](json& j) { j["version"] = "1"; }},
        {"fractional version", [](json& j) { j["version"] = 1.5; }},
        {"clips as object", [](json& j) { j["clips"] = json::object(); }},
        {"zoom as boolean", [](json& j) { j["zoomFactor"] = true; }},
        {"preferLossless as text", [](json& j) { j["preferLossless"] = "yes"; }},
        {"inset as text", [](json& j) { j["cropInsetTop"] = "0.1"; }},
        {"bookmark as number", [](json& j) { j["clips"][0]["bookmark"] = 5; }},
        {"rateMultiplier as text", [](json& j) { j["clips"][0]["rateMultiplier"] = "2"; }},
        {"isReversed as number", [](json& j) { j["clips"][0]["isReversed"] = 1; }},
        {"infinite number",
         [](json& j) { j["clips"][0]["outSeconds"] = std::numeric_limits<double>::infinity(); }},
        {"id in braces",
         [](json& j) { j["clips"][0]["id"] = "{8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B7}"; }},
        {"linkGroupID not a UUID", [](json& j) { j["clips"][0]["linkGroupID"] = "group"; }},
        {"streamMask in other case", [](json& j) { j["clips"][0]["streamMask"] = "Both"; }},
        {"unknown smallClipMode", [](json& j) { j["smallClipMode"] = "stretch"; }},
        {"bookmark not Base64", [](json& j) { j["clips"][0]["bookmark"] = "@@@@"; }},
    };
    for (const auto& [name, spoil] : cases) {
        json j = validJson();
        spoil(j);
        EXPECT_FALSE(model::snapshotFromJson(j).ok()) << name;
        EXPECT_FALSE(model::decodeSnapshot(j.dump()).ok()) << name;
    }
    std::string clips = "{}";
    for (std::size_t i = 0; i < model::kMostSnapshotClips; ++i) clips += ",{}";
    const std::pair<std::string, const char*> refused[] = {
        {"", "damaged"},
        {"not json", "damaged"},
        {"{\"version\": 1,}", "damaged"},
        {"{} trailing", "damaged"},
        {R"({"version":1,"playheadGlobal":0,"zoomFactor":1,"clips":[)" + clips + "]}",
         "more than the 100000"},
        {std::string(model::kLargestSnapshotBytes + 1, ' '), "too large"}};
    for (const auto& [text, message] : refused)
        EXPECT_NE(model::decodeSnapshot(text).error().message.find(message), std::string::npos)
            << message;
    std::string beyondADouble = validJson().dump();
    beyondADouble.replace(beyondADouble.find("\"outSeconds\":2"), 14, "\"outSeconds\":1e999");
    EXPECT_FALSE(model::decodeSnapshot(beyondADouble).ok());

    json j = validJson();
    j["clips"].push_back(j["clips"][0]);
    j["clips"][1].erase("outSeconds");
    auto s = model::snapshotFromJson(j);
    ASSERT_FALSE(s.ok());
    EXPECT_NE(s.error().message.find("clip 2"), std::string::npos) << s.error().message;
    EXPECT_NE(s.error().message.find("outSeconds"), std::string::npos) << s.error().message;
}

TEST(FileURL, AwkwardPathsSurviveARoundTripAndOnlyAbsoluteFileURLsRead) {
    EXPECT_EQ(model::fileURLString("/Movies/My Clip #1 100%.mov"),
              "file:///Movies/My%20Clip%20%231%20100%25.mov");
    EXPECT_EQ(model::fileURLString("/a/\xC3\xA9t\xC3\xA9?.mov"), "file:///a/%C3%A9t%C3%A9%3F.mov");
    EXPECT_EQ(model::fileURLString(std::string("/m/a\0b.mov", 10)), "file:///m/a%00b.mov");
    for (const char* path : {"/with space/and  two.mov", "/100%/50%25.mov", "/q?/a?b=c#.mov",
                             "/odd;chars,+&=@$'()!~*/x.mov", "/tab\tand\nnewline.mov"})
        EXPECT_EQ(model::pathFromFileURL(model::fileURLString(path)), std::filesystem::path(path));
    const std::pair<const char*, const char*> read[] = {{"file://localhost/a/b.mov", "/a/b.mov"},
                                                        {"FILE:///a/b.mov", "/a/b.mov"},
                                                        {"file:///a%2fb%20c", "/a/b c"},
                                                        {"file:///a/b.mov?x#y", "/a/b.mov"}};
    for (auto [url, path] : read)
        EXPECT_EQ(model::pathFromFileURL(url), std::filesystem::path(path));
    for (const char* url : {"", "file:", "file://host/a.mov", "file:a.mov", "https:///a.mov",
                            "/a.mov", "file:///a%2", "file:///a%g0", "file:///a%"})
        EXPECT_FALSE(model::pathFromFileURL(url)) << url;
}

TEST(Base64, MatchesTheStandardVectorsKeepsEveryByteAndRejectsMalformedText) {
    auto bytes = [](std::string_view s) { return model::Bytes(s.begin(), s.end()); };
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}};
    for (auto [plain, coded] : vectors) {
        EXPECT_EQ(model::base64Encode(bytes(plain)), coded);
        EXPECT_EQ(model::base64Decode(coded), bytes(plain)) << coded;
    }
    model::Bytes all;
    for (int i = 0; i < 256; ++i) all.push_back(static_cast<std::uint8_t>(i));
    EXPECT_EQ(model::base64Decode(model::base64Encode(all)), all);
    for (const char* bad :
         {"Zg=", "Z===", "Zg=v", "Zg==Zm9v", "Zm9*", "Zm9v\n", "-_-_", "Zm9vY", "Zm=v"})
        EXPECT_FALSE(model::base64Decode(bad)) << bad;
}

}  // namespace
