#include <string>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "model/project.h"
#include "support/fake_media_services.h"
#include "support/model_test_support.h"

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::PasteboardType;
using model::StreamMask;
using nlohmann::json;

class ClipboardTest : public MediaProjectTest {
  protected:
    // Puts `clips` on the timeline, selects them all and copies them.
    void copy(const std::vector<Clip>& clips) {
        project.setClips(clips);
        std::unordered_set<Uuid> ids;
        for (const auto& c : clips) ids.insert(c.id);
        project.setSelectedClipIDs(ids);
        project.copySelection();
    }

    // Pastes and answers the clips that the paste appended, in stacking order.
    std::vector<Clip> paste() {
        std::size_t existing = project.clips().size();
        project.pasteAtPlayhead();
        executor.drain();
        return {project.clips().begin() + static_cast<std::ptrdiff_t>(existing),
                project.clips().end()};
    }
};

TEST_F(ClipboardTest, CopyWritesTheSelectedClipsInTimelineOrder) {
    Clip late = liveClip("/m/c.mov", 1, 30);
    Clip early = liveClip("/m/a.mov", 1, 10);
    project.setClips({late, early, liveClip("/m/d.mov", 1, 0)});
    project.copySelection();
    EXPECT_EQ(pasteboard->writes(), 0) << "nothing selected";
    project.setSelectedClipIDs({late.id, early.id});
    project.copySelection();

    json records = json::parse(pasteboard->payloadText().value_or(""));
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0]["id"], early.id.toString());
    EXPECT_EQ(records[1]["id"], late.id.toString());
    EXPECT_EQ(lastStep(project), Step{});

    project.setSelectedClipID(Uuid::random());
    project.copySelection();
    EXPECT_EQ(pasteboard->payloadText(), "[]") << "ids of clips that are gone: nothing stale stays";
}

TEST_F(ClipboardTest, PasteLandsTheEarliestAtThePlayheadWithNewIdsAndEditDecisionsFromTheRecord) {
    Clip a = liveClip("/m/a.wav", 10, 10, false, true);
    a.inSeconds = 2;
    a.outSeconds = 6;
    a.rateMultiplier = 2;
    a.streamMask = StreamMask::audioOnly;
    a.url = "/m/old-home.wav";  // the bookmark finds the file where it moved
    Clip b = liveClip("/m/b.mov", 1, 12);
    copy({liveClip("/m/c.mov", 1, 30), a, b});
    project.setPlayheadGlobal(1);
    Recorder r(project);
    project.pasteAtPlayhead();
    EXPECT_EQ(project.undoName(), "Paste") << "recorded before anything is probed";
    project.setPlayheadGlobal(0);
    executor.drain();

    std::vector<Clip> pasted(project.clips().begin() + 3, project.clips().end());
    ASSERT_EQ(pasted.size(), 3u);
    EXPECT_EQ(pasted[0].url, "/m/a.wav");
    EXPECT_EQ(placement(pasted[0]), (Placement{2, 6, 1}));
    EXPECT_EQ(std::pair(pasted[0].rateMultiplier, pasted[0].streamMask),
              std::pair(2.0, StreamMask::audioOnly));
    EXPECT_EQ(pasted[1].startOnTimeline, 3);
    EXPECT_EQ(pasted[2].startOnTimeline, 21);
    EXPECT_EQ(pasted[1].filmstrip.size(), FakeMediaServices::kFilmstripFrames) << "enriched anew";
    std::unordered_set<Uuid> ids;
    for (const Clip& c : project.clips()) ids.insert(c.id);
    EXPECT_EQ(ids.size(), 6u) << "new ids";
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{pasted[0].id});
    EXPECT_EQ(r.count(model::ProjectField::compositionToken), 1u) << "once for the whole paste";
}

TEST_F(ClipboardTest, HalvesPastedTogetherFormANewPairEachTimeAndAHalfAloneLosesItsLink) {
    Uuid group = Uuid::random();
    Clip video = liveClip("/m/a.mov", 4, 0);
    video.streamMask = StreamMask::videoOnly;
    video.linkGroupID = group;
    Clip audio = video;
    audio.id = Uuid::random();
    audio.streamMask = StreamMask::audioOnly;
    copy({video, audio});
    auto first = paste();
    auto second = paste();
    ASSERT_EQ(first.size() + second.size(), 4u);
    EXPECT_NE(first[0].linkGroupID.value_or(group), group);
    EXPECT_EQ(first[1].linkGroupID, first[0].linkGroupID);
    EXPECT_NE(second[0].linkGroupID, first[0].linkGroupID) << "each paste renews the group";
    EXPECT_EQ(second[1].linkGroupID, second[0].linkGroupID);

    copy({audio});
    auto lone = paste();
    ASSERT_EQ(lone.size(), 1u);
    EXPECT_FALSE(lone[0].linkGroupID);
}

TEST_F(ClipboardTest, ARecordWhoseFileIsGoneIsSkippedSilentlyAndTheTokenStillRises) {
    Clip live = liveClip("/m/a.mov", 2, 4);
    Clip lost = Clip::missingPlaceholder({Uuid::random(), "/gone/b.mov", {}, 0, 3, 0});
    copy({live, lost});
    project.setPlayheadGlobal(10);
    project.pasteAtPlayhead();
    EXPECT_EQ(drainCapturingLog(), "");
    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_EQ(project.clips()[2].startOnTimeline, 14) << "the lost record still set the offset";

    copy({lost});
    project.setSelectedClipID(live.id);
    auto token = project.compositionToken();
    EXPECT_TRUE(paste().empty());
    EXPECT_EQ(lastStep(project), (Step{"Paste", token + 1}));
    EXPECT_EQ(project.selectedClipID(), live.id);
}

TEST_F(ClipboardTest, AnythingButAWellFormedPayloadDoesNothing) {
    Clip a = liveClip("/m/a.mov", 2, 0);
    project.setClips({a});
    const std::string record =
        "{\"id\":\"" + Uuid::random().toString() +
        "\",\"url\":\"file:///m/a.mov\",\"inSeconds\":0,\"outSeconds\":2,\"startOnTimeline\":0}";
    const std::vector<std::pair<std::string_view, std::string>> cases = {
        {"public.utf8-plain-text", "[" + record + "]"},
        {PasteboardType::vantrellClips, "not json"},
        {PasteboardType::vantrellClips, "{\"clips\":[" + record + "]}"},
        {PasteboardType::vantrellClips, "[]"},
        {PasteboardType::vantrellClips, "[" + record + ",{\"id\":\"x\"}]"},
    };
    Recorder r(project);
    for (const auto& [type, text] : cases) {
        pasteboard->put(type, text);
        EXPECT_TRUE(paste().empty()) << text;
    }
    EXPECT_FALSE(project.canUndo());
    EXPECT_TRUE(r.heardNothing());
    EXPECT_EQ(media->probeCount(), 1u) << "only the probe that made the clip";

    pasteboard->put(PasteboardType::vantrellClips, "[" + record + "]");
    EXPECT_EQ(paste().size(), 1u) << "the same record, well wrapped, pastes";
}

}  // namespace