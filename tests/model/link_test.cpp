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
using model_test::lastStep;
using model_test::place;
using model_test::Placement;
using model_test::placement;
using model_test::Step;

// One half of an unlinked pair, made without a probe.
Clip half(double start, double length, StreamMask mask, Uuid group) {
    Clip c = clipAt(start, length);
    c.streamMask = mask;
    c.linkGroupID = group;
    return c;
}

TEST(Links, AClipWithBothStreamsIsLinkedAndAGroupMemberUnlinked) {
    Project p;
    Clip both = clipAt(0, 2);
    Clip videoFile = clipAt(0, 2, true, false);
    Clip masked = clipAt(0, 2);
    masked.streamMask = StreamMask::videoOnly;
    Clip grouped = half(0, 2, StreamMask::audioOnly, Uuid::random());
    Clip placeholder = Clip::missingPlaceholder({Uuid::random(), "/gone.wav", {}, 0, 3, 0});
    p.setClips({both, videoFile, masked, grouped, placeholder});
    EXPECT_EQ(p.linkState(both.id), ClipLinkState::linked);
    EXPECT_EQ(p.linkState(placeholder.id), ClipLinkState::linked);
    EXPECT_EQ(p.linkState(videoFile.id), ClipLinkState::none)
        << "mask both on a file with one stream";
    EXPECT_EQ(p.linkState(masked.id), ClipLinkState::none);
    EXPECT_EQ(p.linkState(grouped.id), ClipLinkState::unlinked);
    EXPECT_EQ(p.linkState(Uuid::random()), ClipLinkState::none);

    p.toggleLinkAV(videoFile.id);
    p.toggleLinkAV(Uuid::random());
    EXPECT_EQ(lastStep(p), Step{}) << "nothing to link";
}

// Relink.

TEST(Links, RelinkMergesIntoTheVideoMemberInItsPlaceAndDropsWhatTheSoundHad) {
    Uuid group = Uuid::random();
    Clip video = half(2, 6, StreamMask::videoOnly, group);
    video.rateMultiplier = 1.5;
    Clip audio = half(9, 6, StreamMask::audioOnly, group);
    audio.inSeconds = 1;
    Clip x = clipAt(5, 1);
    Clip y = clipAt(6, 1);
    auto merged = [](Clip c) {
        c.streamMask = StreamMask::both;
        c.linkGroupID.reset();
        return c;
    };
    Clip first = half(3, 2, StreamMask::audioOnly, group);
    Clip second = half(7, 2, StreamMask::audioOnly, group);
    struct Case {
        std::vector<Clip> before;
        Uuid toggled;
        std::vector<Clip> after;
    };
    const std::vector<Case> cases = {
        {{video, x, y, audio}, video.id, {merged(video), x, y}},
        {{x, audio, y, video}, audio.id, {x, y, merged(video)}},  // past the shortened end
        {{x, video, audio, y}, audio.id, {x, merged(video), y}},
        {{first, second}, second.id, {merged(first)}},  // no video-only member: the first
    };
    for (const Case& k : cases) {
        Project p;
        p.setClips(k.before);
        p.setPlayheadGlobal(50);
        p.toggleLinkAV(k.toggled);
        EXPECT_EQ(p.clips(), k.after);
        EXPECT_EQ(lastStep(p), (Step{"Re-link Audio", 1}));
        EXPECT_EQ(p.playheadGlobal(), 50) << "no clamp";
    }
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
    EXPECT_EQ(lastStep(p), Step{});
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
    Clip other = liveClip("/m/b.mov", 2, 20);
    place(project, {c, other}, c.id);
    project.setPlayheadGlobal(50);

    project.toggleLinkAV(c.id);
    EXPECT_EQ(lastStep(project), (Step{"Unlink Audio", 0}))
        << "nothing changes before the probe lands";
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    const Clip& video = clips[0];
    const Clip& audio = clips[1];
    EXPECT_EQ(clips[2], other);
    EXPECT_EQ(video.id, c.id);
    EXPECT_EQ(video.streamMask, StreamMask::videoOnly);
    ASSERT_TRUE(video.linkGroupID.has_value());
    EXPECT_NE(audio.id, c.id);
    EXPECT_EQ(audio.url, c.url);
    EXPECT_EQ(audio.streamMask, StreamMask::audioOnly);
    EXPECT_EQ(audio.linkGroupID, video.linkGroupID);
    EXPECT_EQ(placement(audio), (Placement{1, 7, 3}));
    EXPECT_EQ(project.linkState(video.id), ClipLinkState::unlinked);
    EXPECT_EQ(project.linkState(audio.id), ClipLinkState::unlinked);
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});
    EXPECT_EQ(project.playheadGlobal(), 50) << "no clamp";
    EXPECT_TRUE(project.hasOverlap());

    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{c, other})) << "one linked record again";
}

TEST_F(LinksTest, TheAudioHalfOfARetimedReversedClipPlaysForwardAtNormalSpeed) {
    Clip c = liveClip("/m/a.mov", 10, 0);
    c.rateMultiplier = 2;
    c.isReversed = true;
    c.reversedURL = "/tmp/vantrell-reversed-a.mov";
    c.forwardInSeconds = 2;
    c.forwardOutSeconds = 8;
    c.outSeconds = 6;
    unlinkedAt(c);

    const Clip& video = project.clips()[0];
    const Clip& audio = project.clips()[1];
    EXPECT_EQ(video.rateMultiplier, 2);
    EXPECT_TRUE(video.isReversed);
    EXPECT_EQ(video.reversedURL, c.reversedURL);
    EXPECT_EQ(audio.rateMultiplier, 1.0);
    EXPECT_FALSE(audio.isReversed);
    EXPECT_FALSE(audio.reversedURL || audio.forwardInSeconds);
    EXPECT_EQ(audio.timelineLength(), 6);
}

TEST_F(LinksTest, ARelinkPutsTheSoundBackInStepWithThePictureWhileThePictureIsThere) {
    Clip c = liveClip("/m/a.mov", 10, 1);
    Uuid audioID = unlinkedAt(c);
    project.moveClip(audioID, 7);
    project.setOut(audioID, 3);
    project.toggleLinkAV(audioID);
    ASSERT_EQ(project.clips().size(), 1u);
    EXPECT_EQ(project.clips()[0].id, c.id);
    EXPECT_EQ(placement(project.clips()[0]), (Placement{0, 10, 1}))
        << "where the sound stood and how it was trimmed is lost";

    project.undo();
    project.setSelectedClipID(c.id);
    project.deleteSelected();
    auto entries = project.undoCount();
    project.toggleLinkAV(audioID);
    EXPECT_EQ(project.undoCount(), entries) << "the picture is gone";
    EXPECT_EQ(project.linkState(audioID), ClipLinkState::unlinked);
}

}  // namespace
