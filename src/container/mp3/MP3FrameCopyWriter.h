#pragma once

#include "container/mp3/MP3FrameScanner.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace folivox {

// Writes the clean copy of a scanned MP3: the tags before the audio, a fresh
// information frame for the new length, every audio frame of the scan byte
// for byte in file order, and the tags after the audio. Holes, junk and tags
// in the middle are left out.
//
// The information frame: when the source has a Xing/Info frame with all four
// fields, it is kept with its LAME extension (encoder delay and padding stay
// true, since the first and last frames are the source's) and its frame and
// byte counts, seek table, music length and both CRCs are rewritten. Otherwise
// a new one is made ("Info" when every frame has one bitrate, "Xing" when not)
// with the first audio frame's version, rate and channel mode. A kept "Info"
// frame becomes "Xing" when the frames no longer share one bitrate.
//
// Stretches of audio frames can be replaced by other frames (a re-encode of
// frames that do not decode): the frames [firstFrame, firstFrame +
// frameCount) of the scan, counted over all its runs, give way to `frames`.
class MP3FrameCopyWriter {
public:
    struct Outcome {
        std::int64_t bytes = 0;       // the whole file
        std::int64_t audioFrames = 0; // audio frames written
    };

    struct Replacement {
        std::int64_t firstFrame = 0;
        std::int64_t frameCount = 0;
        QByteArray frames; // whole frames, back to back
    };

    // Writes atomically to `output` (nothing is left there on failure).
    // Throws MP3IntegrityError when the copy cannot be written, and returns
    // nothing when `cancelled` answers true (asked between runs of frames).
    // Replacements are in stream order, apart, and inside the scan's frames
    // (std::invalid_argument otherwise).
    static std::optional<Outcome> write(const std::uint8_t* source, std::size_t size,
                                        const MP3FrameScanner::Result& scan, const QString& output,
                                        const std::function<bool()>& cancelled = {},
                                        const std::vector<Replacement>& replacements = {});

    // The information frame for these audio frames (runs of `source`, with
    // the replacements).
    static QByteArray infoFrame(const std::uint8_t* source, const MP3FrameScanner::Result& scan,
                                const std::vector<Replacement>& replacements = {});

    // CRC-16 as the LAME extension uses it (polynomial 0x8005, reflected,
    // starting at 0).
    static std::uint16_t crc16(const std::uint8_t* data, std::size_t length, std::uint16_t crc = 0);
};

} // namespace folivox
