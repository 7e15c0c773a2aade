#include "model/snapshot.h"

#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using model::VantrellSnapshot;
using nlohmann::json;

const common::Uuid kId = *common::Uuid::parse("8a1d3c52-7e4b-4f0a-9c1d-2b3e4f5a6b7c");

// A small valid file, to be broken one key at a time.
json validJson() {
    return json::parse(R"({"version": 1, "playheadGlobal": 0, "zoomFactor": 1, "clips": [{
        "id": "8a1d3c52-7e4b-4f0a-9c1d-2b3e4f5a6b7c", "url": "file:///media/a.mov",
        "inSeconds": 0, "outSeconds": 2, "startOnTimeline": 0}]})");
}

TEST(Snapshot, EveryFieldSurvivesARoundTripAndAbsentOnesAreLeftOutUnderSortedKeys) {
    model::VantrellSnapshotClip r{
        kId, "/Media/Holiday 2024/beach #2.mov", model::Bytes{0, 1, 2, 250, 255}, 1.25, 9.5, 3};
    r.streamMask = model::StreamMask::videoOnly;
    r.linkGroupID = common::Uuid::random();
    r.rateMultiplier = 2;
    r.isReversed = true;
    r.forwardInSeconds = 0.5;
    r.forwardOutSeconds = 8.75;
    VantrellSnapshot s{1,   {r, r}, 4.5, 2.5, true, model::SmallClipMode::centerNative,
                       0.1, 0.2,    0.3, 0.4};
    s.clips[1].id = common::Uuid::random();
    auto text = model::encodeSnapshot(s);
    ASSERT_TRUE(text.ok());
    auto back = model::decodeSnapshot(*text);
    ASSERT_TRUE(back.ok()) << back.error().message;
    EXPECT_EQ(*back, s);

    VantrellSnapshot bare;
    bare.clips = {{kId, "/m/a b.mov", {}, 0, 2.5, 1}};
    EXPECT_EQ(model::encodeSnapshot(bare).value(), R"({
  "clips": [
    {
      "id": "8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B7C",
      "inSeconds": 0.0,
      "outSeconds": 2.5,
      "startOnTimeline": 1.0,
      "url": "file:///m/a%20b.mov"
    }
  ],
  "playheadGlobal": 0.0,
  "version": 1,
  "zoomFactor": 1.0
}
)");

    const double nan = std::numeric_limits<double>::quiet_NaN();
    s.clips[1].forwardOutSeconds = nan;
    EXPECT_NE(model::encodeSnapshot(s).error().message.find("forwardOutSeconds"),
              std::string::npos);
    bare.cropInsetBottom = -std::numeric_limits<double>::infinity();
    EXPECT_NE(model::encodeSnapshot(bare).error().message.find("cropInsetBottom"),
              std::string::npos);
}

TEST(Snapshot, ReadingIgnoresUnknownKeysAndNullsButRefusesMalformedFilesNamingClipAndKey) {
    json lenient = validJson();
    lenient["version"] = -3;
    lenient["futureSetting"] = {{"nested", true}};
    lenient["clips"][0]["colourGrade"] = "warm";
    lenient["smallClipMode"] = nullptr;
    lenient["clips"][0]["bookmark"] = nullptr;
    lenient["clips"][1] = lenient["clips"][0];
    lenient["clips"][1]["url"] = "https://example.com/far.mov";  // opens as a placeholder
    auto s = model::snapshotFromJson(lenient);
    ASSERT_TRUE(s.ok()) << s.error().message;
    VantrellSnapshot expected;
    expected.version = -3;
    expected.clips = {{kId, "/media/a.mov", {}, 0, 2, 0}, {kId, "https://example.com/far.mov"}};
    expected.clips[1].outSeconds = 2;
    EXPECT_EQ(*s, expected);
    EXPECT_NE(model::encodeSnapshot(*s)->find("\"https://example.com/far.mov\""),
              std::string::npos);

    const std::vector<std::pair<const char*, std::function<void(json&)>>> cases = {
        {"top level is an array", [](json& j) { j = json::array({j}); }},
        {"no version", [](json& j) { j.erase("version"); }},
        {"null zoomFactor", [](json& j) { j["zoomFactor"] = nullptr; }},
        {"clip without url", [](json& j) { j["clips"][0].erase("url"); }},
        {"version as text", [](json& j) { j["version"] = "1"; }},
        {"fractional version", [](json& j) { j["version"] = 1.5; }},
        {"clips as object", [](json& j) { j["clips"] = json::object(); }},
        {"preferLossless as text", [](json& j) { j["preferLossless"] = "yes"; }},
        {"bookmark as number", [](json& j) { j["clips"][0]["bookmark"] = 5; }},
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
        {"{\"version\": 1,}", "damaged"},
        {"{} trailing", "damaged"},
        {R"({"version":1,"playheadGlobal":0,"zoomFactor":1,"clips":[)" + clips + "]}",
         "more than the 100000"},
        {std::string(model::kLargestSnapshotBytes + 1, ' '), "too large"},
        {"{\"version\":1,\"playheadGlobal\":0,\"zoomFactor\":1e999,\"clips\":[]}", "damaged"}};
    for (const auto& [text, message] : refused)
        EXPECT_NE(model::decodeSnapshot(text).error().message.find(message), std::string::npos)
            << message;

    json j = validJson();
    j["clips"].push_back(j["clips"][0]);
    j["clips"][1].erase("outSeconds");
    auto message = model::snapshotFromJson(j).error().message;
    EXPECT_NE(message.find("clip 2"), std::string::npos) << message;
    EXPECT_NE(message.find("outSeconds"), std::string::npos) << message;
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