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
        p.setPlayheadGlobal(50);
        p.toggleLinkAV(toggled);
        EXPECT_EQ(p.clips(), after);
        EXPECT_EQ(p.undoName(), "Re-link Audio");
        EXPECT_EQ(p.playheadGlobal(), 50) << "no clamp";
        EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{after.back().id});
    }
    p.setClips({audio, video, x});
    p.setSelectedClipID(x.id);
    p.toggleLinkAV(video.id);
    EXPECT_EQ(p.selectedClipIDs(), std::unordered_set<Uuid>{x.id});

    p.setClips({audio, video, half(1, 1, StreamMask::videoOnly, group)});
    p.toggleLinkAV(audio.id);
    p.setClips({audio});
    p.toggleLinkAV(audio.id);
    EXPECT_EQ(p.undoCount(), 3u) << "a group of one or three records nothing";
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
    std::tie(audio.inSeconds, audio.outSeconds, audio.startOnTimeline) = std::tuple(1, 7, 3);
    EXPECT_TRUE(video.linkGroupID && audio.id != c.id);
    EXPECT_EQ(clips, (std::vector<Clip>{video, audio, other}));
    EXPECT_EQ(project.compositionToken(), 1);
    EXPECT_EQ(project.selectedClipIDs(), std::unordered_set<Uuid>{c.id});

    project.moveClip(audio.id, 7);
    project.toggleLinkAV(audio.id);
    EXPECT_EQ(placement(project.clips()[0]), (Placement{1, 7, 3}))
        << "where the sound stood is lost";
    project.undo();
    project.undo();
    EXPECT_EQ(project.clips(), (std::vector<Clip>{c, other}));
}

}  // namespace