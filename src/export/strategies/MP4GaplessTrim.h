#pragma once

#include "export/strategies/SlicePlanner.h"

#include <QString>

#include <cstdint>

namespace folivox {

// The gapless fields of an AAC file in MP4: the edit list that skips the
// encoder's priming at the start and ends the presentation at the last real
// sample, the last packet's duration cut to the real samples (so the media
// duration is priming plus audio), and the iTunes "iTunSMPB" item (priming,
// padding, sample count) that players without edit-list support read.
class MP4GaplessTrim {
public:
    // Rewrites the audio track's timing of the file at path (ffmpeg's output
    // of a stream copy, in which every packet counts as a whole frame, or of
    // an encode, whose last packet already holds only the real samples) so
    // that it presents exactly `samples` samples after `priming`. Throws
    // GenericError naming the file when its packets hold less than that, or
    // more than one frame beyond it.
    static void apply(const QString& path, std::int64_t priming, std::int64_t samples);

    // What the file's audio track holds: packet duration (the first stts
    // entry), priming (the edit list's media time) and its packet count.
    struct Layout {
        EncoderFraming framing;
        std::int64_t packets = 0;
        std::int64_t mediaSamples = 0; // sum of the packet durations
        std::uint32_t timescale = 0;
    };
    static Layout read(const QString& path);

    // The iTunSMPB text for these counts.
    static QString smpbText(std::int64_t priming, std::int64_t padding, std::int64_t samples);
};

} // namespace folivox
