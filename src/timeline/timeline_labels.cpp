#include "timeline/timeline_labels.h"

#include <algorithm>

#include "model/time_format.h"

namespace timeline {

namespace {

QString seconds2(double seconds) {
    return QString::number(seconds, 'f', 2);
}

}  // namespace

QString clipAccessibilityLabel(const ClipLabelInput& clip) {
    if (clip.isMissing) return QStringLiteral("Missing: %1").arg(clip.fileName);
    QString kind = clip.hasVideo && clip.linkState != model::ClipLinkState::none
                       ? QStringLiteral("Video and audio clip")
                   : clip.hasVideo ? QStringLiteral("Video clip")
                                   : QStringLiteral("Audio clip");
    return QStringLiteral("%1, %2 seconds, %3%4")
        .arg(kind, seconds2(std::max(clip.outSeconds - clip.inSeconds, 0.0)), clip.fileName,
             clip.isReversed ? QStringLiteral(", reversed") : QString());
}

QString gapAccessibilityLabel(const model::GapSelection& gap) {
    return QStringLiteral("Gap, %1 seconds, %2")
        .arg(seconds2(std::max(gap.endTime - gap.startTime, 0.0)),
             gap.isAudioRow ? QStringLiteral("audio row") : QStringLiteral("video row"));
}

QString selectedValue(bool selected) {
    return selected ? QStringLiteral("Selected") : QString();
}

QString playheadAccessibilityValue(double playheadSeconds, double totalSeconds) {
    return QString::fromStdString(model::formatLCDTimecode(playheadSeconds) + " of " +
                                  model::formatLCDTimecode(totalSeconds));
}

QString trimReadoutText(double absoluteClipSeconds, double timelineSeconds) {
    return QString::fromStdString(model::formatTimecode(absoluteClipSeconds)) +
           QStringLiteral(" src · ") +
           QString::fromStdString(model::formatTimecode(timelineSeconds)) +
           QStringLiteral(" timeline");
}

}  // namespace timeline
