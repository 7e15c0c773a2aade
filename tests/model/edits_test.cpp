#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "model/project.h"
#include "support/fake_media_services.h"
#include "support/model_test_support.h"

namespace {

using namespace model_test;
using common::Uuid;
using model::Clip;
using model::ClipLinkState;
using model::GapSelection;
using model::Project;
using model::StreamMask;

// A clip using in..out of a file `full` seconds long, placed at `start`, played at `rate`.
Clip trimmedClip(double start, double in, double out, double full = 20, double rate = 1) {
    Clip c = clipAt(start, full);
    c.inSeconds = in;
    c.outSeconds = out;
    c.rateMultiplier = rate;
    return c;
}

TEST(TrimSplitMove, LiveTrimsAndMovesHoldTheClipInsideItsFileAndTheTimelineAndRecordNothing) {
    using Write = void (Project::*)(const Uuid&, double);
    const Write in = &Project::setIn, out = &Project::setOut, move = &Project::moveClip;
    struct Case {
        Clip clip;
        Write write;
        double to;
        Placement expected;
    };
    const Case cases[] = {
        {trimmedClip(0, 1, 5), in, 9, {4.95, 5, 3.95}},     // the shortest length before out
        {trimmedClip(1, 5, 10), in, 2, {2, 10, 0}},         // not before the timeline start
        {trimmedClip(1, 2, 10, 20, 2), in, 4, {4, 10, 2}},  // at double speed
        {trimmedClip(3, 2, 8), out, 1, {2, 2.05, 3}},       // not below in
        {trimmedClip(0, 2, 8, 10), out, 30, {2, 10, 0}},    // not past the file
        {trimmedClip(3, 0, 2), move, -2, {0, 2, 0}},        // not before zero
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(testing::PrintToString(k.expected));
        Project p;
        p.setClips({k.clip});
        (p.*k.write)(k.clip.id, k.to);
        EXPECT_EQ(placement(p.clips()[0]), k.expected);
        EXPECT_EQ(lastStep(p), Step{});
    }
}

TEST(TrimSplitMove, InAndOutAtPlayheadTrimToTheMappedSourceTimeOnlyOfASelectedClipThere) {
    struct Case {
        double out, rate, playhead;
        bool in;
        Placement expected;
        double expectedPlayhead;
    };
    const Case cases[] = {
        {5, 1, 2, true, {1, 5, 2}, 2},        // on the exact start
        {5, 1, 6, false, {1, 5, 2}, 5.999},   // on the exact end, where commitEdit clamps
        {11, 2, 4, false, {1, 5, 2}, 3.999},  // at double speed
        {11, 2, 3, true, {3, 11, 3}, 3},      // the left edge moves to the playhead
    };
    for (const Case& k : cases) {
        Project p;
        Clip c = trimmedClip(2, 1, k.out, 20, k.rate);
        place(p, {c}, c.id);
        p.setPlayheadGlobal(k.playhead);
        k.in ? p.setInAtPlayhead() : p.setOutAtPlayhead();
        EXPECT_EQ(lastStep(p), (Step{k.in ? "Set In" : "Set Out", 1}));
        EXPECT_EQ(placement(*p.clip(c.id)), k.expected);
        EXPECT_DOUBLE_EQ(p.playheadGlobal(), k.expectedPlayhead);
    }
    Project p;
    Clip c = trimmedClip(2, 1, 5);
    p.setClips({c});
    p.setPlayheadGlobal(3);
    p.setInAtPlayhead();
    p.setSelectedClipID(c.id);
    p.setPlayheadGlobal(6.01);
    p.setOutAtPlayhead();
    EXPECT_FALSE(p.canUndo()) << "nothing selected, or past the clip";
}

TEST(TrimSplitMove, NudgesStepByTheClipsFramesAndPlayingRewindsFromTheEnd) {
    Project p;
    Clip slow = clipAt(1, 4);  // 25 frames a second
    Clip fast = clipAt(1, 4);
    fast.frameRate = 50;
    Clip audio = clipAt(0.05, 4, false, true);
    p.setClips({slow, fast, audio});
    p.setPlayheadGlobal(5);
    p.toggleSelection(fast.id);
    p.toggleSelection(slow.id);
    Recorder r(p);
    p.nudgeSelectedClipByFrames(5);
    EXPECT_EQ(placement(*p.clip(slow.id)), (Placement{0, 4, 1.2}));
    EXPECT_EQ(p.clip(fast.id)->startOnTimeline, 1);
    EXPECT_EQ(lastStep(p), (Step{"Nudge Clip", 1}));
    EXPECT_EQ(r.didChangeCalls, 2) << "once before the write, once with the token";
    p.nudgeSelectedClipByFrames(-50);
    EXPECT_EQ(p.clip(slow.id)->startOnTimeline, 0);
    p.setSelectedClipID(audio.id);
    p.nudgeSelectedClipByFrames(3);
    EXPECT_DOUBLE_EQ(p.clip(audio.id)->startOnTimeline, 0.15) << "thirtieths without a rate";

    p.setClips({fast});
    p.setPlayheadGlobal(1);
    p.nudgePlayheadByFrames(5);
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 1.1);
    p.nudgePlayheadByFrames(1000);
    EXPECT_EQ(p.playheadGlobal(), 5) << "the end itself is reachable";

    p.setPlayheadGlobal(4.98);
    p.togglePlayback();
    EXPECT_EQ(p.playheadGlobal(), 4.98);
    p.togglePlayback();
    p.setPlayheadGlobal(4.995);
    p.togglePlayback();
    EXPECT_TRUE(p.isPlaying());
    EXPECT_EQ(p.playheadGlobal(), 0);
}

TEST(TrimSplitMove, DeletingPassesTheSelectionOnByStackingOrderAndCollapsingMovesTheGapsRow) {
    Project p;
    Clip a = clipAt(0, 2), b = clipAt(10, 2), c = clipAt(2, 2), d = clipAt(6, 1);
    p.setClips({a, b, c, d});
    p.toggleSelection(b.id);
    p.toggleSelection(d.id);
    p.setPlayheadGlobal(11);
    p.deleteSelected();
    EXPECT_EQ(lastStep(p), (Step{"Delete Clips", 1}));
    EXPECT_EQ(p.clips(), (std::vector<Clip>{a, c}));
    EXPECT_EQ(p.selectedClipID(), c.id) << "the clip now at the first deleted index";
    EXPECT_DOUBLE_EQ(p.playheadGlobal(), 3.999);
    p.deleteSelected();
    EXPECT_EQ(lastStep(p), (Step{"Delete Clip", 2}));
    EXPECT_EQ(p.selectedClipID(), a.id) << "past the end: the new last";
    p.setClips({a, b, c});
    p.setSelectedClipID(c.id);
    p.deleteSelected();
    EXPECT_EQ(p.selectedClipID(), b.id);
    p.recordSnapshot("Cut");
    p.deleteSelected(std::nullopt);
    EXPECT_EQ(lastStep(p), (Step{"Cut", 4}));

    // The gap's stored end is matched within a ten-thousandth; only its row moves.
    auto at = [](double start, bool video = true, bool audio = true) {
        return clipAt(start, 1, video, audio);
    };
    const std::pair<std::vector<Clip>, std::vector<double>> rows[] = {
        {{at(0), at(4.99995), at(4.999), at(9)}, {0, 1.99995, 4.999, 6}},
        {{at(0), at(6, false, true), at(6, true, false)}, {0, 6, 3}},
    };
    for (const auto& [clips, starts] : rows) {
        p.setClips(clips);
        p.selectGap(GapSelection{false, 2, 5});
        p.deleteSelected();
        EXPECT_EQ(p.selectedGap(), std::nullopt);
        for (std::size_t i = 0; i < clips.size(); ++i)
            EXPECT_DOUBLE_EQ(p.clips()[i].startOnTimeline, starts[i]) << i;
    }
    EXPECT_EQ(lastStep(p), (Step{"Collapse Gap", 6}));
}

class TrimSplitMoveTest : public MediaProjectTest {};

TEST_F(TrimSplitMoveTest, ASplitCutsAtThePlayheadAndStacksTheRightHalfAboveTheLeft) {
    Clip other = liveClip("/m/other.mov", 3, 20);
    Clip c = liveClip("/m/a.mov", 20, 2);
    c.inSeconds = 2;
    c.outSeconds = 14;
    c.rateMultiplier = 2;
    c.streamMask = StreamMask::videoOnly;
    c.linkGroupID = Uuid::random();
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-a.mov";
    c.forwardInSeconds = 3;
    c.forwardOutSeconds = 9;
    c.filmstrip = {std::make_shared<const model::ImageData>()};
    c.waveformPeaks = std::make_shared<const std::vector<float>>(1, 0.5f);
    place(project, {c, other}, c.id);
    project.setPlayheadGlobal(5);
    project.splitAtPlayhead();
    EXPECT_EQ(lastStep(project), (Step{"Split", 0})) << "nothing changes before the probe lands";
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    EXPECT_EQ(placement(clips[0]), (Placement{2, 8, 2}));
    EXPECT_EQ(clips[0].forwardInSeconds, 3);
    // The right half is the clip from the cut on, reversed but with no forward stretch.
    Clip right = c;
    right.id = clips[1].id;
    right.inSeconds = 8;
    right.startOnTimeline = 5;
    right.forwardInSeconds = right.forwardOutSeconds = std::nullopt;
    EXPECT_NE(right.id, c.id);
    EXPECT_EQ(clips[1], right);
    EXPECT_EQ(clips[2], other);
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});
    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{c, other}));
}

TEST_F(TrimSplitMoveTest, ASplitTakesTheSelectedClipElseTheTopOneAndNeedsRoomForBothHalves) {
    Clip selected = liveClip("/m/a.mov", 4, 0);
    Clip bottom = liveClip("/m/b.mov", 10, 3);
    Clip top = liveClip("/m/c.mov", 10, 4);
    place(project, {selected, bottom, top}, selected.id);
    Recorder r(project);
    for (double closeToAnEdge : {0.03, 13.96, 20.0}) {
        project.setPlayheadGlobal(closeToAnEdge);
        project.splitAtPlayhead();
    }
    project.setShowCropSheet(true);
    project.setPlayheadGlobal(6);
    project.splitAtPlayhead();
    project.setShowCropSheet(false);
    executor.drain();
    EXPECT_EQ(r.didChangeCalls, 0);
    EXPECT_EQ(media->probeCount(), 3u) << "only the probes that made the clips";
    project.splitAtPlayhead();
    executor.drain();
    ASSERT_EQ(project.clips().size(), 4u);
    EXPECT_EQ(project.clips()[2].outSeconds, 2) << "the top clip";

    project.setClips({bottom, selected});
    project.setPlayheadGlobal(4);
    project.splitAtPlayhead();
    executor.drain();
    EXPECT_EQ(project.clips()[0].outSeconds, 1) << "the selected clip ends at the playhead";
}

// A split and an unlink land once the probe of their new half does.
TEST_F(TrimSplitMoveTest, ASplitOrUnlinkLosesToAnEditMeanwhileAndLeavesDeletedOrLostClipsAlone) {
    using Meanwhile = std::function<void(const Uuid&)>;
    const std::tuple<std::string, std::function<void()>, Meanwhile> edits[] = {
        {"Split", [&] { project.splitAtPlayhead(); },
         [&](const Uuid& id) { project.setIn(id, 1); }},
        {"Unlink Audio", [&] { project.toggleLinkAV(*project.selectedClipID()); },
         [&](const Uuid& id) { project.moveClip(id, 4); }},
    };
    for (const auto& [entry, start, editMeanwhile] : edits) {
        SCOPED_TRACE(entry);
        Clip c = liveClip("/m/a.mov", 10, 0);
        place(project, {c}, c.id);
        project.setPlayheadGlobal(5);
        media->hold(FakeMediaServices::probes);
        const std::size_t probes = media->probeCount();
        start();
        ASSERT_TRUE(media->waitFor(FakeMediaServices::probes, probes + 1));
        editMeanwhile(c.id);
        Clip edited = *project.clip(c.id);
        media->release();
        executor.drain();
        EXPECT_EQ(project.clips(), std::vector<Clip>{edited});

        start();
        project.deleteSelected();
        auto token = project.compositionToken();
        executor.drain();
        EXPECT_TRUE(project.clips().empty());
        EXPECT_EQ(project.compositionToken(), token);

        Clip lost = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 6, 0});
        place(project, {lost}, lost.id);
        project.setPlayheadGlobal(3);
        start();
        executor.drain();
        EXPECT_EQ(project.clips(), std::vector<Clip>{lost});
        EXPECT_EQ(lastStep(project), (Step{entry, token})) << "an entry but no token";
    }
}

// One half of an unlinked pair, made without a probe.
Clip half(double start, double length, StreamMask mask, Uuid group) {
    Clip c = masked(clipAt(start, length), mask);
    c.linkGroupID = group;
    return c;
}

Clip merged(Clip c) {
    c.streamMask = StreamMask::both;
    c.linkGroupID.reset();
    return c;
}

TEST(Links, StatesFollowStreamsAndGroupsAndRelinkMergesIntoTheVideoMemberTakingTheSelection) {
    Clip videoFile = clipAt(0, 2, true, false);
    Uuid group = Uuid::random();
    Clip video = half(2, 6, StreamMask::videoOnly, group);
    video.rateMultiplier = 1.5;
    Clip audio = half(9, 6, StreamMask::audioOnly, group);
    audio.inSeconds = 1;
    Clip x = clipAt(5, 1);
    Clip first = half(3, 2, StreamMask::audioOnly, group);
    Clip second = half(7, 2, StreamMask::audioOnly, group);
    Project p;
    p.setClips({x, half(0, 2, StreamMask::audioOnly, Uuid::random()), videoFile});
    EXPECT_EQ(
        std::tuple(p.linkState(x.id), p.linkState(p.clips()[1].id), p.linkState(videoFile.id)),
        std::tuple(ClipLinkState::linked, ClipLinkState::unlinked, ClipLinkState::none))
        << "a one-stream file is neither";
    p.toggleLinkAV(videoFile.id);
    EXPECT_EQ(lastStep(p), Step{}) << "nothing to link";
    for (auto [before, toggled, after] :
         {std::tuple{std::vector{x, audio, video}, audio.id, std::vector{x, merged(video)}},
          {std::vector{first, second}, second.id, std::vector{merged(first)}}}) {
        p.setClips(before);
        p.setSelectedClipID(toggled);
        p.toggleLinkAV(toggled);
        EXPECT_EQ(p.clips(), after);
        EXPECT_EQ(p.undoName(), "Re-link Audio");
        EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{after.back().id});
    }
    p.setClips({audio, video, half(1, 1, StreamMask::videoOnly, group)});
    p.toggleLinkAV(audio.id);
    p.setClips({audio});
    p.toggleLinkAV(audio.id);
    EXPECT_EQ(p.undoCount(), 2u) << "a group of one or three records nothing";
}

class LinksTest : public MediaProjectTest {};

TEST_F(LinksTest, UnlinkSplitsTheClipIntoAVideoHalfAndAForwardAudioHalfJustAboveIt) {
    Clip c = liveClip("/m/a.mov", 10, 3);
    c.inSeconds = 1;
    c.outSeconds = 7;
    c.rateMultiplier = 2;
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-a.mov";
    c.forwardInSeconds = 1;
    c.forwardOutSeconds = 7;
    c.filmstrip = {std::make_shared<const model::ImageData>()};
    c.waveformPeaks = std::make_shared<const std::vector<float>>(1, 0.5f);
    Clip other = liveClip("/m/b.mov", 2, 20);
    place(project, {c, other}, c.id);
    project.toggleLinkAV(c.id);
    EXPECT_EQ(lastStep(project), (Step{"Unlink Audio", 0}));
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    Clip video = c;
    video.streamMask = StreamMask::videoOnly;
    video.linkGroupID = clips[0].linkGroupID;
    // The sound is a fresh probe of the file that plays forward at normal speed.
    Clip audio = media->probe("/m/a.mov", c.bookmark, clips[1].id).value();
    audio.streamMask = StreamMask::audioOnly;
    audio.linkGroupID = video.linkGroupID;
    std::tie(audio.inSeconds, audio.outSeconds, audio.startOnTimeline, audio.waveformPeaks) =
        std::tuple(1, 7, 3, c.waveformPeaks);
    EXPECT_TRUE(video.linkGroupID && audio.id != c.id);
    EXPECT_EQ(clips, (std::vector<Clip>{video, audio, other}));
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});

    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{c, other}));
}

}  // namespace
