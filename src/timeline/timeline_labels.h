#pragma once

#include <QString>

#include "model/clip_link_state.h"
#include "model/project_types.h"

namespace timeline {

// What a screen reader says for the timeline's elements.

struct ClipLabelInput {
    bool isMissing = false;
    QString fileName;  // the last path component of the clip's source
    bool hasVideo = false;
    model::ClipLinkState linkState = model::ClipLinkState::none;
    double inSeconds = 0;
    double outSeconds = 0;
    bool isReversed = false;
};
// "Video clip, 4.00 seconds, a.mov, reversed" or "Missing: a.mov".
QString clipAccessibilityLabel(const ClipLabelInput& clip);

// "Gap, 1.50 seconds, video row".
QString gapAccessibilityLabel(const model::GapSelection& gap);

// "Selected" or nothing.
QString selectedValue(bool selected);

// The playhead thumb's value: "00:01.50 of 00:10.00".
QString playheadAccessibilityValue(double playheadSeconds, double totalSeconds);

// The trim bubble's text: "12.40s src · 1:03.25 timeline".
QString trimReadoutText(double absoluteClipSeconds, double timelineSeconds);

}  // namespace timeline
