#pragma once

#include "export/strategies/SlicePlanner.h"

#include <QString>

#include <cstdint>
#include <vector>

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

    // One file of a copy join as it plays on its own: its packets, its
    // priming (the edit list's media time) and the samples it presents
    // after that (the iTunes gapless item's count where the file has one,
    // else what its last packet or its edit list leaves of the packets).
    struct JoinedFile {
        std::int64_t packets = 0;
        int frameSize = 0;
        std::int64_t priming = 0;
        std::int64_t samples = 0;
    };
    static JoinedFile joinedFile(const QString& path);

    // Rewrites the timing of the file at path, a stream copy of the packets
    // of `files` one after another, so that it plays each file exactly as
    // that file plays on its own: one edit per file that skips its priming
    // and ends at its last real sample. The packets stay as they are (an AAC
    // frame cannot be cut without a new encode), and each file's priming
    // frame is still decoded, so the first real samples after a join come
    // out as in the file itself. The movie's clock becomes the audio's
    // sample clock so every edit is exact to the sample. An iTunes gapless
    // item is removed: it cannot describe gaps inside the audio. Returns
    // where each file's first sample plays, in samples; throws GenericError
    // naming the file when its packets are not the files' packets.
    static std::vector<std::int64_t> applyJoin(const QString& path, const std::vector<JoinedFile>& files);

    // The iTunSMPB text for these counts.
    static QString smpbText(std::int64_t priming, std::int64_t padding, std::int64_t samples);
};

} // namespace folivox
