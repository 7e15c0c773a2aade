#include <string>

#include <gtest/gtest.h>

#include "fake_media_services.h"
#include "model/snapshot.h"

namespace {

constexpr const char* kProject = R"({"version": 1, "playheadGlobal": 0, "zoomFactor": 1, "clips": [
  {"id": "8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B70", "url": "https://example.com/far.mov",
   "inSeconds": 0, "outSeconds": 2, "startOnTimeline": 0},
  {"id": "8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B71", "url": "file:///m/a%00b.mov",
   "inSeconds": 0, "outSeconds": 3, "startOnTimeline": 2},
  {"id": "8A1D3C52-7E4B-4F0A-9C1D-2B3E4F5A6B72", "url": "file:///m/ok.mov",
   "inSeconds": 0, "outSeconds": 4, "startOnTimeline": 5}]})";

class UnusableURLTest : public model_test::MediaProjectTest {};

TEST_F(UnusableURLTest, ARecordWhoseURLNamesNoFileOpensAsAPlaceholderAndSavesUnchanged) {
    media->add("/m/a", 9);  // where a NUL would have cut the path short
    media->add("/m/ok.mov", 4);
    auto snapshot = model::decodeSnapshot(kProject);
    ASSERT_TRUE(snapshot.ok()) << snapshot.error().message;
    project.hydrateClips(snapshot->clips);
    const std::string log = drainCapturingLog();

    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_TRUE(project.clips()[0].isMissing);
    EXPECT_TRUE(project.clips()[1].isMissing) << "not the file before the NUL";
    EXPECT_FALSE(project.clips()[2].isMissing);
    EXPECT_EQ(log,
              "Vantrell: missing media for far.mov — preserving as placeholder\n"
              "Vantrell: missing media for a?b.mov — preserving as placeholder\n");

    auto saved = model::encodeSnapshot(project.makeSnapshot());
    ASSERT_TRUE(saved.ok());
    EXPECT_NE(saved->find("\"https://example.com/far.mov\""), std::string::npos) << *saved;
    EXPECT_NE(saved->find("\"file:///m/a%00b.mov\""), std::string::npos) << *saved;
}

}  // namespace
