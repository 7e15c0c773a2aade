#pragma once

namespace composition {

// The sound the audio renderer makes: 32-bit float samples, interleaved, at this rate,
// in FFmpeg's default layout for this many channels (1 mono, 2 stereo, 6 5.1, ...).
struct AudioFormat {
    int sampleRateHz = 48000;
    int channelCount = 2;

    friend bool operator==(const AudioFormat&, const AudioFormat&) = default;
};

}  // namespace composition
