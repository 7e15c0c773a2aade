#include <optional>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "fake_media_services.h"
#include "model/project.h"
#include "model_test_support.h"

namespace {

using common::Uuid;
using model::Clip;
using model::ClipLinkState;
using model::Project;
using model::StreamMask;
using model_test::clipAt;

// One half of an unlinked pair, made without a probe.
Clip half(double start, double length, StreamMask mask, Uuid group) {
    Clip c = clipAt(start, length);
    c.streamMask = mask;
    c.linkGroupID = group;
    return c;
}

// States.

TEST(Links, AClipWithBothStreamsIsLinked) {
    Project p;
    Clip both = clipAt(0, 2);
    Clip videoFile = clipAt(0, 2, true, false);
    Clip masked = clipAt(0, 2);
    masked.streamMask = StreamMask::videoOnly;
    Clip grouped = half(0, 2, StreamMask::audioOnly, Uuid::random());
    p.setClips({both, videoFile, masked, grouped});
    EXPECT_EQ(p.linkState(both.id), ClipLinkState::linked);
    EXPECT_EQ(p.linkState(videoFile.id), ClipLinkState::none)
        << "mask both on a file with one stream";
    EXPECT_EQ(p.linkState(masked.id), ClipLinkState::none);
    EXPECT_EQ(p.linkState(grouped.id), ClipLinkState::unlinked);
    EXPECT_EQ(p.linkState(Uuid::random()), ClipLinkState::none);
}

TEST(Links, APlaceholderWithBothStreamsIsLinked) {
    Project p;
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone.wav", {}, 0, 3, 0});
    p.setClips({placeholder});
    EXPECT_EQ(p.linkState(placeholder.id), ClipLinkState::linked);
}

TEST(Links, ToggleOnAClipWithNothingToLinkDoesNothing) {
    Project p;
    Clip videoFile = clipAt(0, 2, true, false);
    p.setClips({videoFile});
    p.toggleLinkAV(videoFile.id);
    p.toggleLinkAV(Uuid::random());
    EXPECT_FALSE(p.canUndo());
    EXPECT_EQ(p.compositionToken(), 0);
}

// Relink.

TEST(Links, RelinkMergesIntoTheVideoHalfAndDropsWhatTheSoundHad) {
    Project p;
    Uuid group = Uuid::random();
    Clip video = half(2, 6, StreamMask::videoOnly, group);
    video.rateMultiplier = 1.5;
    Clip audio = half(9, 6, StreamMask::audioOnly, group);
    audio.inSeconds = 1;
    p.setClips({video, audio});
    p.setPlayheadGlobal(50);
    p.toggleLinkAV(audio.id);

    ASSERT_EQ(p.clips().size(), 1u);
    const Clip& merged = p.clips()[0];
    EXPECT_EQ(merged.id, video.id);
    EXPECT_EQ(merged.streamMask, StreamMask::both);
    EXPECT_EQ(merged.linkGroupID, std::nullopt);
    EXPECT_EQ(merged.startOnTimeline, 2);
    EXPECT_EQ(merged.inSeconds, 0);
    EXPECT_EQ(merged.rateMultiplier, 1.5);
    EXPECT_EQ(p.linkState(merged.id), ClipLinkState::linked);
    EXPECT_EQ(p.undoName(), "Re-link Audio");
    EXPECT_EQ(p.compositionToken(), 1);
    EXPECT_EQ(p.playheadGlobal(), 50) << "no clamp";
}

TEST(Links, RelinkStandsAtTheVideoMembersIndexAndKeepsTheOthersOrder) {
    Project p;
    Uuid group = Uuid::random();
    Clip video = half(0, 2, StreamMask::videoOnly, group);
    Clip audio = half(0, 2, StreamMask::audioOnly, group);
    Clip x = clipAt(5, 1);
    Clip y = clipAt(6, 1);
    p.setClips({video, x, y, audio});
    p.toggleLinkAV(video.id);
    ASSERT_EQ(p.clips().size(), 3u);
    EXPECT_EQ(p.clips()[0].id, video.id);
    EXPECT_EQ(p.clips()[1], x);
    EXPECT_EQ(p.clips()[2], y);

    p.undo();
    p.setClips({x, audio, y, video});
    p.toggleLinkAV(audio.id);
    ASSERT_EQ(p.clips().size(), 3u);
    EXPECT_EQ(p.clips()[0], x);
    EXPECT_EQ(p.clips()[1], y);
    EXPECT_EQ(p.clips()[2].id, video.id) << "past the shortened end: appended";

    p.setClips({x, video, audio, y});
    p.toggleLinkAV(audio.id);
    ASSERT_EQ(p.clips().size(), 3u);
    EXPECT_EQ(p.clips()[1].id, video.id);
    EXPECT_EQ(p.clips()[2], y);
}

TEST(Links, WithoutAVideoOnlyMemberTheFirstMemberDecides) {
    Project p;
    Uuid group = Uuid::random();
    Clip first = half(3, 2, StreamMask::audioOnly, group);
    Clip second = half(7, 2, StreamMask::audioOnly, group);
    p.setClips({first, second});
    p.toggleLinkAV(second.id);
    ASSERT_EQ(p.clips().size(), 1u);
    EXPECT_EQ(p.clips()[0].id, first.id);
    EXPECT_EQ(p.clips()[0].startOnTimeline, 3);
}

TEST(Links, RelinkMovesASelectedHalfToTheMergedClipAndLeavesOtherSelectionsAlone) {
    Project p;
    Uuid group = Uuid::random();
    Clip video = half(0, 2, StreamMask::videoOnly, group);
    Clip audio = half(0, 2, StreamMask::audioOnly, group);
    Clip other = clipAt(5, 1);
    p.setClips({video, audio, other});
    p.toggleSelection(other.id);
    p.toggleSelection(audio.id);
    p.toggleSelection(audio.id);
    p.toggleLinkAV(video.id);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{other.id});

    p.undo();
    p.setSelectedClipID(audio.id);
    p.toggleLinkAV(audio.id);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{video.id});
}

TEST(Links, AGroupOfOneOrThreeIsNotRelinkedAndRecordsNothing) {
    Project p;
    Uuid group = Uuid::random();
    Clip lone = half(0, 2, StreamMask::audioOnly, group);
    p.setClips({lone});
    p.toggleLinkAV(lone.id);
    EXPECT_EQ(p.linkState(lone.id), ClipLinkState::unlinked);
    p.setClips(
        {lone, half(0, 1, StreamMask::videoOnly, group), half(1, 1, StreamMask::videoOnly, group)});
    p.toggleLinkAV(lone.id);
    EXPECT_EQ(p.clips().size(), 3u);
    EXPECT_FALSE(p.canUndo());
    EXPECT_EQ(p.compositionToken(), 0);
}

// Unlink: the audio half is a new record that the probe makes.

class LinksTest : public model_test::MediaProjectTest {
  protected:
    // Puts `c` alone on the timeline and unlinks it; the audio half's id.
    Uuid unlinkedAt(const Clip& c) {
        project.setClips({c});
        project.toggleLinkAV(c.id);
        executor.drain();
        EXPECT_EQ(project.clips().size(), 2u);
        return project.clips().at(1).id;
    }
};

TEST_F(LinksTest, UnlinkSplitsTheClipIntoAVideoHalfAndAnAudioHalfJustAboveIt) {
    Clip c = liveClip("/m/a.mov", 10, 3);
    c.inSeconds = 1;
    c.outSeconds = 7;
    c.filmstrip = {std::make_shared<const model::ImageData>()};
    c.waveform = std::make_shared<const model::ImageData>();
    c.waveformPeaks = std::make_shared<const std::vector<float>>(std::vector<float>{0.3f});
    Clip other = liveClip("/m/b.mov", 2, 20);
    project.setClips({c, other});
    project.setSelectedClipID(c.id);
    project.setPlayheadGlobal(50);

    project.toggleLinkAV(c.id);
    EXPECT_EQ(project.undoName(), "Unlink Audio");
    EXPECT_EQ(project.clips().size(), 2u) << "nothing changes before the probe lands";
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    const Clip& video = clips[0];
    const Clip& audio = clips[1];
    EXPECT_EQ(clips[2], other);
    EXPECT_EQ(video.id, c.id);
    EXPECT_EQ(video.streamMask, StreamMask::videoOnly);
    ASSERT_TRUE(video.linkGroupID.has_value());
    EXPECT_EQ(video.filmstrip, c.filmstrip);
    EXPECT_NE(audio.id, c.id);
    EXPECT_EQ(audio.url, c.url);
    EXPECT_EQ(audio.streamMask, StreamMask::audioOnly);
    EXPECT_EQ(audio.linkGroupID, video.linkGroupID);
    EXPECT_EQ(audio.inSeconds, 1);
    EXPECT_EQ(audio.outSeconds, 7);
    EXPECT_EQ(audio.startOnTimeline, 3);
    EXPECT_EQ(audio.waveform, c.waveform);
    EXPECT_EQ(audio.waveformPeaks, c.waveformPeaks);
    EXPECT_TRUE(audio.filmstrip.empty());
    EXPECT_EQ(project.linkState(video.id), ClipLinkState::unlinked);
    EXPECT_EQ(project.linkState(audio.id), ClipLinkState::unlinked);
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});
    EXPECT_EQ(project.playheadGlobal(), 50) << "no clamp";
    EXPECT_TRUE(project.hasOverlap());
}

TEST_F(LinksTest, TheAudioHalfOfARetimedReversedClipPlaysForwardAtNormalSpeed) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    c.rateMultiplier = 2;
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-a.mov";
    c.forwardInSeconds = 2;
    c.forwardOutSeconds = 8;
    c.inSeconds = 0;
    c.outSeconds = 6;
    project.setClips({c});
    project.toggleLinkAV(c.id);
    executor.drain();

    ASSERT_EQ(project.clips().size(), 2u);
    const Clip& video = project.clips()[0];
    const Clip& audio = project.clips()[1];
    EXPECT_EQ(video.rateMultiplier, 2);
    EXPECT_TRUE(video.isReversed);
    EXPECT_EQ(video.reversedURL, c.reversedURL);
    EXPECT_EQ(audio.rateMultiplier, 1.0);
    EXPECT_FALSE(audio.isReversed);
    EXPECT_EQ(audio.reversedURL, std::nullopt);
    EXPECT_EQ(audio.forwardInSeconds, std::nullopt);
    EXPECT_EQ(audio.timelineLength(), 6);
}

TEST_F(LinksTest, UnlinkingAPlaceholderEndsWithNothingButAnEntry) {
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone/a.mov", {}, 0, 4, 0});
    project.setClips({placeholder});
    project.toggleLinkAV(placeholder.id);
    executor.drain();
    EXPECT_EQ(project.clips(), std::vector<Clip>{placeholder});
    EXPECT_EQ(project.undoName(), "Unlink Audio");
    EXPECT_EQ(project.compositionToken(), 0);
    project.undo();
    EXPECT_EQ(project.clips(), std::vector<Clip>{placeholder});
}

TEST_F(LinksTest, UndoOfAnUnlinkGivesBackOneLinkedRecord) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    unlinkedAt(c);
    project.undo();
    EXPECT_EQ(project.clips(), std::vector<Clip>{c});
    EXPECT_EQ(project.clips()[0].linkGroupID, std::nullopt);
}

TEST_F(LinksTest, AfterMovingTheSoundARelinkPutsItBackInStepWithThePicture) {
    Clip c = liveClip("/m/a.mov", 10, 1);
    Uuid audioID = unlinkedAt(c);
    project.moveClip(audioID, 7);
    project.setOut(audioID, 3);
    project.toggleLinkAV(audioID);
    ASSERT_EQ(project.clips().size(), 1u);
    EXPECT_EQ(project.clips()[0].id, c.id);
    EXPECT_EQ(project.clips()[0].startOnTimeline, 1);
    EXPECT_EQ(project.clips()[0].outSeconds, 10) << "the trim of the sound is lost";
}

TEST_F(LinksTest, AfterDeletingThePictureTheSoundCannotBeRelinked) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    Uuid audioID = unlinkedAt(c);
    project.setSelectedClipID(c.id);
    project.deleteSelected();
    auto entries = project.undoCount();
    project.toggleLinkAV(audioID);
    EXPECT_EQ(project.undoCount(), entries);
    EXPECT_EQ(project.linkState(audioID), ClipLinkState::unlinked);
}

TEST_F(LinksTest, AnEditOfTheClipDuringTheProbeWinsOverTheUnlink) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    project.setClips({c});
    media->holdProbes();
    project.toggleLinkAV(c.id);
    media->waitForProbes(2);
    project.recordSnapshot("Move Clip");
    project.moveClip(c.id, 4);
    project.commitEdit();
    media->releaseProbes();
    executor.drain();

    ASSERT_EQ(project.clips().size(), 1u);
    EXPECT_EQ(project.clips()[0].streamMask, StreamMask::both);
    EXPECT_EQ(project.clips()[0].startOnTimeline, 4);
    project.undo();
    EXPECT_EQ(project.undoName(), "Unlink Audio");
}

TEST_F(LinksTest, AClipDeletedDuringTheProbeIsNotBroughtBack) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    project.setClips({c});
    project.setSelectedClipID(c.id);
    project.toggleLinkAV(c.id);
    project.deleteSelected();
    auto token = project.compositionToken();
    executor.drain();
    EXPECT_TRUE(project.clips().empty());
    EXPECT_EQ(project.compositionToken(), token);
}

}  // namespace
