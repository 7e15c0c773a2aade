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
using model_test::Placement;
using model_test::placement;
using nlohmann::json;

class ClipboardTest : public model_test::MediaProjectTest {
  protected:
    // Puts `clips` on the timeline, selects them all and copies them.
    void copy(const std::vector<Clip>& clips) {
        project.setClips(clips);
        std::unordered_set<Uuid> ids;
        for (const auto& c : clips) ids.insert(c.id);
        project.setSelectedClipIDs(ids);
        project.copySelection();
    }

    json payload() {
        auto text = pasteboard->payloadText();
        EXPECT_TRUE(text);
        return text ? json::parse(*text) : json();
    }

    void paste() {
        project.pasteAtPlayhead();
        executor.drain();
    }

    // The clips that the last paste appended, in stacking order.
    std::vector<Clip> pastedAfter(std::size_t existing) {
        const auto& all = project.clips();
        return {all.begin() + static_cast<std::ptrdiff_t>(existing), all.end()};
    }
};

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
    EXPECT_EQ(model_test::lastStep(project), model_test::Step{});
}

TEST_F(ClipboardTest, CopyWithoutASelectedClipOrAPasteboardDoesNothing) {
    Clip a = liveClip("/m/a.mov", 1);
    project.setClips({a});
    pasteboard->put("public.utf8-plain-text", "hello");
    project.copySelection();
    project.setSelectedClipIDs({Uuid::random()});
    project.copySelection();
    EXPECT_EQ(pasteboard->writes(), 0);
    EXPECT_TRUE(pasteboard->data("public.utf8-plain-text"));

    Project bare{{&executor, media}};
    model_test::place(bare, {a}, a.id);
    bare.copySelection();
    bare.pasteAtPlayhead();
    executor.drain();
    EXPECT_EQ(bare.clips().size(), 1u);
    EXPECT_FALSE(bare.canUndo());
}

TEST_F(ClipboardTest, PasteLandsTheEarliestAtThePlayheadAndKeepsTheDistances) {
    Clip a = liveClip("/m/a.mov", 1, 10);
    Clip b = liveClip("/m/b.mov", 1, 12);
    Clip c = liveClip("/m/c.mov", 1, 30);
    copy({c, a, b});
    project.setPlayheadGlobal(100);
    model_test::Recorder r(project);
    project.pasteAtPlayhead();
    EXPECT_EQ(project.undoName(), "Paste") << "recorded before anything is probed";
    project.setPlayheadGlobal(0);
    executor.drain();

    auto pasted = pastedAfter(3);
    ASSERT_EQ(pasted.size(), 3u);
    EXPECT_EQ(pasted[0].url, "/m/a.mov");
    std::vector<double> starts;
    std::unordered_set<Uuid> ids{a.id, b.id, c.id};
    for (const Clip& p : pasted) {
        starts.push_back(p.startOnTimeline);
        ids.insert(p.id);
        EXPECT_EQ(p.filmstrip.size(), FakeMediaServices::kFilmstripFrames) << "enriched anew";
        EXPECT_TRUE(p.waveformPeaks);
    }
    EXPECT_EQ(starts, (std::vector<double>{100, 102, 120}));
    EXPECT_EQ(ids.size(), 6u) << "new ids";
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{pasted[0].id});
    EXPECT_EQ(project.selectedClipID(), pasted[0].id);
    EXPECT_EQ(project.undoCount(), 1u);
    EXPECT_EQ(r.count(model::ProjectField::compositionToken), 1u) << "once for the whole paste";
    EXPECT_EQ(r.didChangeCalls, 1);

    project.undo();
    EXPECT_EQ(project.clips().size(), 3u);
}

TEST_F(ClipboardTest, EditDecisionsComeFromTheRecordAndTheRestFromTheFile) {
    Clip a = liveClip("/m/a.wav", 10, 3, false, true);
    a.inSeconds = 2;
    a.outSeconds = 6;
    a.rateMultiplier = 2;
    a.streamMask = StreamMask::audioOnly;
    a.displayName = "renamed";
    a.url = "/m/old-home.wav";  // the bookmark finds the file where it moved
    copy({a});
    project.setPlayheadGlobal(1);
    paste();

    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& p = project.clips()[1];
    EXPECT_EQ(placement(p), (Placement{2, 6, 1}));
    EXPECT_EQ(p.rateMultiplier, 2);
    EXPECT_EQ(p.streamMask, StreamMask::audioOnly);
    EXPECT_EQ(p.url, "/m/a.wav");
    EXPECT_EQ(p.displayName, "a.wav");
    EXPECT_EQ(p.bookmark, FakeMediaServices::bookmarkFor("/m/a.wav"));
}

TEST_F(ClipboardTest, HalvesPastedTogetherFormANewPairEachTimeAndPastingLeavesThePasteboard) {
    Uuid group = Uuid::random();
    Clip video = liveClip("/m/a.mov", 4, 0);
    video.streamMask = StreamMask::videoOnly;
    video.linkGroupID = group;
    Clip audio = video;
    audio.id = Uuid::random();
    audio.streamMask = StreamMask::audioOnly;
    copy({video, audio});
    auto text = pasteboard->payloadText();
    paste();
    paste();

    auto pasted = pastedAfter(2);
    ASSERT_EQ(pasted.size(), 4u);
    ASSERT_TRUE(pasted[0].linkGroupID);
    EXPECT_NE(pasted[0].linkGroupID, group);
    EXPECT_EQ(pasted[1].linkGroupID, pasted[0].linkGroupID);
    EXPECT_EQ(pasted[0].streamMask, StreamMask::videoOnly);
    EXPECT_EQ(pasted[1].streamMask, StreamMask::audioOnly);
    EXPECT_NE(pasted[2].linkGroupID, pasted[0].linkGroupID) << "each paste renews the group";
    EXPECT_EQ(pasted[3].linkGroupID, pasted[2].linkGroupID);
    EXPECT_NE(pasted[2].id, pasted[0].id);
    EXPECT_EQ(pasted[2].startOnTimeline, 0) << "on top of the first paste";
    EXPECT_EQ(project.undoCount(), 2u);
    EXPECT_EQ(pasteboard->payloadText(), text);
    EXPECT_EQ(project.linkState(pasted[0].id), ClipLinkState::unlinked);

    // The new pair links back together without touching the one it was copied from.
    project.toggleLinkAV(pasted[0].id);
    EXPECT_EQ(project.clip(video.id)->linkGroupID, group);
    EXPECT_EQ(project.clip(pasted[0].id)->streamMask, StreamMask::both);

    copy({audio});
    EXPECT_EQ(payload()[0]["linkGroupID"], group.toString());
    paste();
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_FALSE(project.clips()[1].linkGroupID) << "one half pasted alone loses its link";
    EXPECT_EQ(project.clips()[1].streamMask, StreamMask::audioOnly);
}

TEST_F(ClipboardTest, AReversedClipPastesReversedAndRendersAnew) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    c.isReversed = true;
    c.forwardInSeconds = 2;
    c.forwardOutSeconds = 5;
    c.outSeconds = 3;
    c.reversedURL = "/tmp/vantrell-reversed-old.mov";
    copy({c});
    EXPECT_FALSE(payload()[0].contains("reversedURL"));
    paste();

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
    copy({live, lost});
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
    paste();
    EXPECT_EQ(pastedAfter(3).size(), 2u) << "the same payload pastes once the file is back";
}

TEST_F(ClipboardTest, WhenEveryFileIsGoneTheEntryStaysAndTheTokenStillRises) {
    Clip lost = Clip::missingPlaceholder({Uuid::random(), "/gone/b.mov", {}, 0, 3, 0});
    Clip other = liveClip("/m/a.mov", 2, 4);
    copy({lost});
    model_test::place(project, {lost, other}, other.id);
    paste();
    EXPECT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(model_test::lastStep(project), (model_test::Step{"Paste", 1}));
    EXPECT_EQ(project.selectedClipID(), other.id);
}

// Payloads from elsewhere.

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
        paste();
        EXPECT_EQ(project.clips().size(), 1u) << c.text;
    }
    EXPECT_FALSE(project.canUndo());
    EXPECT_TRUE(r.heardNothing());
    EXPECT_EQ(media->probeCount(), 1u) << "only the probe that made the clip";

    pasteboard->put(PasteboardType::vantrellClips, "[" + record + "]");
    paste();
    EXPECT_EQ(project.clips().size(), 2u) << "the same record, well wrapped, pastes";
}

TEST_F(ClipboardTest, APayloadCopiedInOneProjectPastesIntoAnother) {
    copy({liveClip("/m/a.mov", 2, 7)});
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

}  // namespace
