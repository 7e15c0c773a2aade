#include <filesystem>
#include <string>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::ClipLinkState;
using model::PasteboardType;
using model::Project;
using model::StreamMask;
using model_test::FakeMediaServices;
using nlohmann::json;

class ClipboardTest : public model_test::MediaProjectTest {
  protected:
    // Puts `clips` on the timeline and selects them all.
    void placeAndSelect(const std::vector<Clip>& clips) {
        project.setClips(clips);
        std::unordered_set<Uuid> ids;
        for (const auto& c : clips) ids.insert(c.id);
        project.setSelectedClipIDs(ids);
    }

    json payload() {
        auto text = pasteboard->payloadText();
        EXPECT_TRUE(text);
        return text ? json::parse(*text) : json();
    }

    // The clips that the last paste appended, in stacking order.
    std::vector<Clip> pastedAfter(std::size_t existing) {
        const auto& all = project.clips();
        return {all.begin() + static_cast<std::ptrdiff_t>(existing), all.end()};
    }
};

// Copying.

TEST_F(ClipboardTest, CopyWritesTheSelectedClipsInTimelineOrderAsCompactRecords) {
    Clip late = liveClip("/m/c.mov", 1, 30);
    Clip early = liveClip("/m/a.mov", 1, 10);
    Clip middle = liveClip("/m/b.wav", 1, 12, false, true);
    Clip unselected = liveClip("/m/d.mov", 1, 0);
    project.setClips({late, early, unselected, middle});
    project.setSelectedClipIDs({middle.id, late.id, early.id});
    project.copySelection();

    auto text = pasteboard->payloadText();
    ASSERT_TRUE(text);
    EXPECT_EQ(text->find('\n'), std::string::npos) << "not pretty-printed";
    json records = json::parse(*text);
    ASSERT_TRUE(records.is_array());
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0]["id"], early.id.toString());
    EXPECT_EQ(records[1]["id"], middle.id.toString());
    EXPECT_EQ(records[2]["id"], late.id.toString());
    EXPECT_EQ(records[0]["url"], "file:///m/a.mov");
    EXPECT_EQ(records[0]["bookmark"],
              model::base64Encode(FakeMediaServices::bookmarkFor("/m/a.mov")));
    for (const auto& key : {"streamMask", "rateMultiplier", "isReversed", "reversedURL",
                            "displayName", "fullDurationSeconds"})
        EXPECT_FALSE(records[0].contains(key)) << key;
    EXPECT_FALSE(project.canUndo());
    EXPECT_EQ(project.compositionToken(), 0);
}

TEST_F(ClipboardTest, CopyWithoutASelectedClipLeavesThePasteboardAsItWas) {
    project.setClips({liveClip("/m/a.mov", 1)});
    pasteboard->put("public.utf8-plain-text", "hello");
    project.copySelection();
    project.setSelectedClipIDs({Uuid::random()});
    project.copySelection();
    EXPECT_EQ(pasteboard->writes(), 0);
    EXPECT_TRUE(pasteboard->data("public.utf8-plain-text"));
}

// Pasting.

TEST_F(ClipboardTest, PasteLandsTheEarliestAtThePlayheadAndKeepsTheDistances) {
    Clip a = liveClip("/m/a.mov", 1, 10);
    Clip b = liveClip("/m/b.mov", 1, 12);
    Clip c = liveClip("/m/c.mov", 1, 30);
    placeAndSelect({c, a, b});
    project.copySelection();
    project.setPlayheadGlobal(100);
    model_test::Recorder r(project);
    project.pasteAtPlayhead();
    EXPECT_EQ(project.undoName(), "Paste") << "recorded before anything is probed";
    project.setPlayheadGlobal(0);
    executor.drain();

    auto pasted = pastedAfter(3);
    ASSERT_EQ(pasted.size(), 3u);
    EXPECT_EQ(pasted[0].startOnTimeline, 100);
    EXPECT_EQ(pasted[1].startOnTimeline, 102);
    EXPECT_EQ(pasted[2].startOnTimeline, 120);
    EXPECT_EQ(pasted[0].url, "/m/a.mov");
    for (const Clip& p : pasted) {
        EXPECT_NE(p.id, a.id);
        EXPECT_NE(p.id, b.id);
        EXPECT_NE(p.id, c.id);
        EXPECT_EQ(p.filmstrip.size(), FakeMediaServices::kFilmstripFrames) << "enriched anew";
        EXPECT_TRUE(p.waveformPeaks);
    }
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{pasted[0].id});
    EXPECT_EQ(project.selectedClipID(), pasted[0].id);
    EXPECT_EQ(project.undoCount(), 1u);
    EXPECT_EQ(r.count(model::ProjectField::compositionToken), 1u) << "once for the whole paste";
    EXPECT_EQ(r.didChangeCalls, 1);

    project.undo();
    EXPECT_EQ(project.clips().size(), 3u);
}

TEST_F(ClipboardTest, PastingAgainGivesAnotherSetWithNewIds) {
    Clip a = liveClip("/m/a.mov", 2, 5);
    placeAndSelect({a});
    project.copySelection();
    auto text = pasteboard->payloadText();
    project.pasteAtPlayhead();
    executor.drain();
    project.pasteAtPlayhead();
    executor.drain();

    ASSERT_EQ(project.clips().size(), 3u);
    EXPECT_NE(project.clips()[1].id, project.clips()[2].id);
    EXPECT_EQ(project.clips()[1].startOnTimeline, 0);
    EXPECT_EQ(project.clips()[2].startOnTimeline, 0) << "on top of each other";
    EXPECT_EQ(project.undoCount(), 2u);
    EXPECT_EQ(pasteboard->payloadText(), text) << "paste leaves the pasteboard alone";
}

TEST_F(ClipboardTest, EditDecisionsComeFromTheRecordAndTheRestFromTheFile) {
    Clip a = liveClip("/m/a.wav", 10, 3, false, true);
    a.inSeconds = 2;
    a.outSeconds = 6;
    a.rateMultiplier = 2;
    a.streamMask = StreamMask::audioOnly;
    a.displayName = "renamed";
    placeAndSelect({a});
    project.copySelection();
    project.setPlayheadGlobal(1);
    project.pasteAtPlayhead();
    executor.drain();

    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& p = project.clips()[1];
    EXPECT_EQ(p.inSeconds, 2);
    EXPECT_EQ(p.outSeconds, 6);
    EXPECT_EQ(p.rateMultiplier, 2);
    EXPECT_EQ(p.streamMask, StreamMask::audioOnly);
    EXPECT_EQ(p.startOnTimeline, 1);
    EXPECT_EQ(p.displayName, "a.wav");
    EXPECT_EQ(p.bookmark, FakeMediaServices::bookmarkFor("/m/a.wav"));
}

// Links.

TEST_F(ClipboardTest, HalvesPastedTogetherFormANewPairOfTheirOwn) {
    Uuid group = Uuid::random();
    Clip video = liveClip("/m/a.mov", 4, 0);
    video.streamMask = StreamMask::videoOnly;
    video.linkGroupID = group;
    Clip audio = liveClip("/m/a.mov", 4, 0);
    audio.streamMask = StreamMask::audioOnly;
    audio.linkGroupID = group;
    placeAndSelect({video, audio});
    project.copySelection();
    project.pasteAtPlayhead();
    executor.drain();
    project.pasteAtPlayhead();
    executor.drain();

    auto pasted = pastedAfter(2);
    ASSERT_EQ(pasted.size(), 4u);
    ASSERT_TRUE(pasted[0].linkGroupID);
    EXPECT_NE(pasted[0].linkGroupID, group);
    EXPECT_EQ(pasted[1].linkGroupID, pasted[0].linkGroupID);
    EXPECT_EQ(pasted[0].streamMask, StreamMask::videoOnly);
    EXPECT_EQ(pasted[1].streamMask, StreamMask::audioOnly);
    EXPECT_NE(pasted[2].linkGroupID, pasted[0].linkGroupID) << "each paste renews the group";
    EXPECT_EQ(pasted[3].linkGroupID, pasted[2].linkGroupID);
    EXPECT_EQ(project.linkState(pasted[0].id), ClipLinkState::unlinked);

    // The new pair links back together without touching the one it was copied from.
    project.toggleLinkAV(pasted[0].id);
    EXPECT_EQ(project.clip(video.id)->linkGroupID, group);
    EXPECT_EQ(project.clip(pasted[0].id)->streamMask, StreamMask::both);
}

TEST_F(ClipboardTest, OneHalfPastedAloneLosesItsLink) {
    Uuid group = Uuid::random();
    Clip audio = liveClip("/m/a.mov", 4, 0);
    audio.streamMask = StreamMask::audioOnly;
    audio.linkGroupID = group;
    placeAndSelect({audio});
    project.copySelection();
    EXPECT_EQ(payload()[0]["linkGroupID"], group.toString());
    project.pasteAtPlayhead();
    executor.drain();

    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_FALSE(project.clips()[1].linkGroupID);
    EXPECT_EQ(project.clips()[1].streamMask, StreamMask::audioOnly);
}

// Reversal.

TEST_F(ClipboardTest, AReversedClipPastesReversedAndRendersAnew) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    c.isReversed = true;
    c.forwardInSeconds = 2;
    c.forwardOutSeconds = 5;
    c.inSeconds = 0;
    c.outSeconds = 3;
    c.reversedURL = "/tmp/vantrell-reversed-old.mov";
    placeAndSelect({c});
    project.copySelection();
    EXPECT_FALSE(payload()[0].contains("reversedURL"));
    project.pasteAtPlayhead();
    executor.drain();

    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& p = project.clips()[1];
    EXPECT_TRUE(p.isReversed);
    EXPECT_FALSE(p.reversedURL) << "the failed render leaves it absent";
    EXPECT_EQ(p.forwardInSeconds, 2);
    EXPECT_EQ(p.forwardOutSeconds, 5);
    auto renders = media->renderCalls();
    ASSERT_EQ(renders.size(), 1u);
    EXPECT_EQ(renders[0].url, "/m/a.mov");
    EXPECT_EQ(renders[0].fromSeconds, 2);
    EXPECT_EQ(renders[0].toSeconds, 5);
}

// Files that are gone.

TEST_F(ClipboardTest, APlaceholdersRecordIsSkippedWhileItsFileIsGone) {
    Clip live = liveClip("/m/a.mov", 2, 4);
    Clip lost = Clip::missingPlaceholder({Uuid::random(), "/gone/b.mov", {}, 0, 3, 0});
    placeAndSelect({live, lost});
    project.copySelection();
    ASSERT_EQ(payload().size(), 2u) << "a placeholder is copied like any clip";
    project.setPlayheadGlobal(10);
    project.pasteAtPlayhead();
    std::string log = drainCapturingLog();

    auto pasted = pastedAfter(2);
    ASSERT_EQ(pasted.size(), 1u);
    EXPECT_EQ(pasted[0].url, "/m/a.mov");
    EXPECT_EQ(pasted[0].startOnTimeline, 14) << "the lost record still set the offset";
    EXPECT_EQ(project.selectedClipID(), pasted[0].id);
    EXPECT_TRUE(log.empty()) << log;

    media->add("/gone/b.mov", 3);
    project.pasteAtPlayhead();
    executor.drain();
    EXPECT_EQ(pastedAfter(3).size(), 2u) << "the same payload pastes once the file is back";
}

TEST_F(ClipboardTest, WhenEveryFileIsGoneTheEntryStaysAndTheTokenStillRises) {
    Clip lost = Clip::missingPlaceholder({Uuid::random(), "/gone/b.mov", {}, 0, 3, 0});
    Clip other = liveClip("/m/a.mov", 2, 4);
    placeAndSelect({lost});
    project.copySelection();
    project.setClips({lost, other});
    project.setSelectedClipID(other.id);
    project.pasteAtPlayhead();
    executor.drain();

    EXPECT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.undoName(), "Paste");
    EXPECT_EQ(project.selectedClipID(), other.id);
    EXPECT_EQ(project.compositionToken(), 1);
}

TEST_F(ClipboardTest, TheBookmarkFindsAFileThatMoved) {
    Clip moved = liveClip("/m/new-home.mov", 2, 0);
    moved.url = "/m/old-home.mov";
    placeAndSelect({moved});
    project.copySelection();
    project.pasteAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(project.clips()[1].url, "/m/new-home.mov");
}

// Payloads that are not ours.

TEST_F(ClipboardTest, AnythingButAWellFormedPayloadDoesNothing) {
    Clip a = liveClip("/m/a.mov", 2, 0);
    project.setClips({a});
    const std::string record =
        "{\"id\":\"" + Uuid::random().toString() +
        "\",\"url\":\"file:///m/a.mov\",\"inSeconds\":0,\"outSeconds\":2,\"startOnTimeline\":0}";
    struct Case {
        std::string_view type;
        std::string text;
    };
    const std::vector<Case> cases = {
        {"public.utf8-plain-text", "[" + record + "]"},
        {PasteboardType::vantrellClips, "not json"},
        {PasteboardType::vantrellClips, "{\"clips\":[" + record + "]}"},
        {PasteboardType::vantrellClips, "[]"},
        {PasteboardType::vantrellClips, "[" + record + ",{\"id\":\"x\"}]"},
    };
    model_test::Recorder r(project);
    for (const auto& c : cases) {
        pasteboard->put(c.type, c.text);
        project.pasteAtPlayhead();
        executor.drain();
        EXPECT_EQ(project.clips().size(), 1u) << c.text;
    }
    EXPECT_FALSE(project.canUndo());
    EXPECT_TRUE(r.fields.empty());
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(media->probeCount(), 1) << "only the probe that made the clip";

    pasteboard->put(PasteboardType::vantrellClips, "[" + record + "]");
    project.pasteAtPlayhead();
    executor.drain();
    EXPECT_EQ(project.clips().size(), 2u) << "the same record, well wrapped, pastes";
}

TEST_F(ClipboardTest, APayloadCopiedInOneProjectPastesIntoAnother) {
    Clip a = liveClip("/m/a.mov", 2, 7);
    placeAndSelect({a});
    project.copySelection();

    Project other{{&executor, media, pasteboard}};
    other.setPlayheadGlobal(1);
    other.pasteAtPlayhead();
    executor.drain();
    ASSERT_EQ(other.clips().size(), 1u);
    EXPECT_EQ(other.clips()[0].url, "/m/a.mov");
    EXPECT_EQ(other.clips()[0].startOnTimeline, 1);
    EXPECT_EQ(other.undoName(), "Paste");
    EXPECT_EQ(project.clips().size(), 1u);
}

TEST_F(ClipboardTest, WithoutAPasteboardCopyAndPasteDoNothing) {
    Project bare{{&executor, media}};
    bare.setClips({liveClip("/m/a.mov", 2)});
    bare.setSelectedClipID(bare.clips()[0].id);
    bare.copySelection();
    bare.pasteAtPlayhead();
    executor.drain();
    EXPECT_EQ(bare.clips().size(), 1u);
    EXPECT_FALSE(bare.canUndo());
}

}  // namespace
