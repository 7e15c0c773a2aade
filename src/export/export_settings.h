#pragma once

#include <optional>
#include <vector>

#include "composition/crop_frame.h"
#include "model/clip.h"
#include "model/small_clip_mode.h"

namespace exporting {

// Whether the re-encode road cuts the project's crop out of the picture.
enum class Framing { whole = 1, crop };

// What the re-encode road makes of the picture. A plain value.
struct ReencodeSettings {
    // The output picture; none makes no video stream, as for an audio-only composition.
    std::optional<composition::OutputFrame> frame;
    Framing framing = Framing::whole;
    double framesPerSecond = 30;  // the constant output rate; NTSC rates exactly n*1000/1001

    friend bool operator==(const ReencodeSettings&, const ReencodeSettings&) = default;
};

// The project's crop insets, fractions of the upright largest frame, 0 meaning none.
struct CropInsets {
    double top = 0;
    double leading = 0;
    double trailing = 0;
    double bottom = 0;
};

// The size of the largest clip on the video row by stored area (the earliest of equal
// areas; clips without a size are skipped), turned upright: width and height swapped for
// a quarter turn. None without such a clip. Pure, like everything here.
std::optional<model::Size> uprightLargestVideoSize(const std::vector<model::Clip>& clips);

// The crop values of an export of `clips`, referring to uprightLargestVideoSize; none
// without a sized video clip.
std::optional<composition::VideoSettings> exportVideoSettings(const std::vector<model::Clip>& clips,
                                                              model::SmallClipMode mode,
                                                              const CropInsets& insets);

// How to re-encode `clips`: the output frame of exportVideoSettings; the crop road when
// there is such a frame and an inset above 0; the highest nominal rate of the clips on the
// video row (30 if none has one), except on the crop road when those rates differ: 30 then.
// A nominal rate stands for the whole or NTSC rate it was narrowed from (29.97 is exactly
// 30000/1001).
ReencodeSettings reencodeSettings(const std::vector<model::Clip>& clips, model::SmallClipMode mode,
                                  const CropInsets& insets);

}  // namespace exporting
