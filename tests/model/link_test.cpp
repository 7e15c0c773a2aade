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
using model::Project;
using model::StreamMask;

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
    Clip grouped = half(0, 2, StreamMask::audioOnly, Uuid::random());
    p.setClips({both, videoFile, grouped});
    EXPECT_EQ(p.linkState(both.id), ClipLinkState::linked);
    EXPECT_EQ(p.linkState(videoFile.id), ClipLinkState::none) << "both on a one-stream file";
    EXPECT_EQ(p.linkState(grouped.id), ClipLinkState::unlinked);
    EXPECT_EQ(p.linkState(Uuid::random()), ClipLinkState::none);
    p.toggleLinkAV(videoFile.id);
    EXPECT_EQ(lastStep(p), Step{}) << "nothing to link";
}

TEST(Links, RelinkMergesIntoTheVideoMemberInItsPlaceAndDropsWhatTheSoundHad) {
    Uuid group = Uuid::random();
    Clip video = half(2, 6, StreamMask::videoOnly, group);
    video.rateMultiplier = 1.5;
    Clip audio = half(9, 6, StreamMask::audioOnly, group);
    audio.inSeconds = 1;
    Clip x = clipAt(5, 1), y = clipAt(6, 1);
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

TEST(Links, RelinkMovesASelectedHalfToTheMergedClipAndNeedsAGroupOfTwo) {
    Project p;
    Uuid group = Uuid::random();
    Clip video = half(0, 2, StreamMask::videoOnly, group);
    Clip audio = half(0, 2, StreamMask::audioOnly, group);
    Clip other = clipAt(5, 1);
    p.setClips({video, audio, other});
    p.toggleSelection(other.id);
    p.toggleLinkAV(video.id);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{other.id});
    p.undo();
    p.setSelectedClipID(audio.id);
    p.toggleLinkAV(audio.id);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{video.id});

    p.setClips({audio, video, half(1, 1, StreamMask::videoOnly, group)});
    p.toggleLinkAV(audio.id);
    p.setClips({audio});
    p.toggleLinkAV(audio.id);
    EXPECT_EQ(p.linkState(audio.id), ClipLinkState::unlinked);
    EXPECT_EQ(p.undoCount(), 1u) << "a group of one or three records nothing";
}

// Unlink: the audio half is a new record that the probe makes.

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
    Clip other = liveClip("/m/b.mov", 2, 20);
    place(project, {c, other}, c.id);
    project.setPlayheadGlobal(50);
    project.toggleLinkAV(c.id);
    EXPECT_EQ(lastStep(project), (Step{"Unlink Audio", 0}))
        << "nothing changes before the probe lands";
    executor.drain();

    const auto& clips = project.clips();
    ASSERT_EQ(clips.size(), 3u);
    ASSERT_TRUE(clips[0].linkGroupID.has_value());
    Clip video = c;
    video.streamMask = StreamMask::videoOnly;
    video.linkGroupID = clips[0].linkGroupID;
    // The sound is a fresh probe of the file that plays forward at normal speed.
    Clip audio = media->probe("/m/a.mov", c.bookmark, clips[1].id).value();
    audio.streamMask = StreamMask::audioOnly;
    audio.linkGroupID = video.linkGroupID;
    std::tie(audio.inSeconds, audio.outSeconds, audio.startOnTimeline) = std::tuple(1, 7, 3);
    EXPECT_NE(audio.id, c.id);
    EXPECT_EQ(clips, (std::vector<Clip>{video, audio, other}));
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});
    EXPECT_EQ(project.playheadGlobal(), 50) << "no clamp";

    project.moveClip(audio.id, 7);
    project.setOut(audio.id, 3);
    project.toggleLinkAV(audio.id);
    ASSERT_EQ(project.clips().size(), 2u);
    EXPECT_EQ(placement(project.clips()[0]), (Placement{1, 7, 3}))
        << "where the sound stood and how it was trimmed is lost";
    project.undo();
    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{c, other})) << "one linked record again";
}

}  // namespace
