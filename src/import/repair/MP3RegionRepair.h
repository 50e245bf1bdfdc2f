#pragma once

#include "container/mp3/MP3FrameCopyWriter.h"
#include "container/mp3/MP3FrameScanner.h"
#include "container/mp3/MP3FrameSequence.h"
#include "container/mp3/MP3MainDataMap.h"
#include "container/mp3/MP3ReencodedRegion.h"
#include "container/mp3/MP3SplicePlanner.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace folivox {

class CancellationToken;
class FFmpegWrapper;

// Re-encodes only the stretches of an MP3 where frames do not decode, so a
// frame copy of it keeps every other frame byte for byte and its length in
// frames (hence its duration and every time after the damage).
//
// 1. Every audio frame of the scan is decoded in process; the frames the
//    decoder rejects, the frames right beside them that it plays as silence
//    (it skips a frame whose main data it cannot reach: its audio is gone
//    too, and if it was silence, silence replaces it), and the frames
//    their damage reaches are lost (MP3SplicePlanner); each run of them
//    gives a stretch to replace.
// 2. A stretch's audio is the decoded audio of its frames, silence for the
//    lost ones (with a fade on either side). It is encoded by ffmpeg
//    (libmp3lame, without the bit reservoir) starting kEncoderWarmUpFrames
//    frames early and shifted by the encoder's and decoder's delay, so that
//    the new frames play the same samples at the same places as the frames
//    they stand in for; frame by frame they replace them, one for one.
// 3. The frames after a stretch read up to 511 bytes of the frames before
//    them (the bit reservoir). The stretch is repacked to end with exactly
//    those bytes (MP3ReservoirPacker); when its free bytes do not reach, it
//    takes in the next frame, and so on, up to kLookaheadFrames.
// 4. The spliced stretches are decoded again with their neighbours; frames
//    that still fail join the lost ones and the plan is made again, at most
//    kRounds times.
class MP3RegionRepair {
public:
    static constexpr std::int64_t kEncoderWarmUpFrames = 3;
    static constexpr std::int64_t kLookaheadFrames = 48;
    static constexpr int kRounds = 3;
    // How far silent frames beside undecodable ones are taken in.
    static constexpr std::int64_t kSilentReach = 16;
    // Samples an MP3 decoder's output lags its input frames, besides the
    // encoder's own delay.
    static constexpr int kDecoderDelay = 529;

    struct Plan {
        std::vector<MP3FrameCopyWriter::Replacement> replacements;
        std::vector<MP3ReencodedRegion> regions;
    };

    // Works in `folder` (for the stretches' audio and encodes), which must
    // outlive the call. `progress` hears the fraction of the frames searched
    // for damage.
    MP3RegionRepair(const std::uint8_t* source, const MP3FrameScanner::Result& scan,
                    const FFmpegWrapper& ffmpeg, const QString& folder, const CancellationToken& token,
                    std::function<void(double)> progress = {});

    // The replacements that make a frame copy of the scan decode cleanly, or
    // nothing, with the reason in why() (empty when cancelled).
    std::optional<Plan> run();
    const QString& why() const { return why_; }

private:
    struct Encoded {
        MP3FrameCopyWriter::Replacement replacement;
        std::int64_t end = 0;
    };

    std::optional<Plan> plan(const std::vector<std::int64_t>& undecodable);
    std::optional<Encoded> encode(const MP3SplicePlanner::Region& region, std::int64_t limit,
                                  const std::vector<std::int64_t>& lost, int index);
    std::optional<QByteArray> encodeAudio(const std::vector<float>& samples, int channels, int kbps, int index);
    std::vector<float> stretchAudio(std::int64_t firstSample, std::int64_t samples, int channels,
                                    const std::vector<std::int64_t>& lost, bool& ok);
    int bitrateFor(std::int64_t first, std::int64_t end) const;
    bool stopped() const;

    const MP3FrameScanner::Result& scan_;
    const FFmpegWrapper& ffmpeg_;
    QString folder_;
    const CancellationToken& token_;
    std::function<void(double)> progress_;
    std::vector<MP3FrameSequence::Frame> frames_;
    MP3MainDataMap map_;
    int channels_ = 2;
    QString why_;
};

} // namespace folivox
