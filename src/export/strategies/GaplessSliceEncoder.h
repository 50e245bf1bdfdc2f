#pragma once

#include "process/CancellationToken.h"
#include "export/strategies/ConcurrencyPlan.h"
#include "export/strategies/FFmpegAudioEncoder.h"
#include "export/strategies/SlicePlanner.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace folivox {

// Encodes a book as one continuous AAC stream in effect, in parallel:
//
// 1. Every source is decoded once and resampled to the output's rate and
//    channels into raw 16-bit PCM ("source_%03d.pcm"). Lengths are then exact
//    sample counts, whatever the sources' formats and rates, and any stretch
//    of the book can be read byte-exactly.
// 2. The book's timeline (the chapters' stretches, in order) is cut into
//    frame-aligned slices (SlicePlanner). Each slice is encoded to ADTS with
//    real audio around it, read through ffmpeg's subfile and concat
//    protocols straight from the PCM files (ParallelSliceEncoder runs them).
// 3. Of each slice only its own packets are kept, the priming and the
//    margins dropped; the packets are laid end to end ("book.aac") and put
//    into MP4 by stream copy. The file then gets one priming skip at its
//    start and one padding trim at its end (MP4GaplessTrim).
class GaplessSliceEncoder {
public:
    // One stretch of the book: samples [start, start + count) of a decoded source.
    struct Stretch {
        int source = 0;
        std::int64_t start = 0;
        std::int64_t count = 0;
    };

    struct DecodedSource {
        QString path;    // the user's file
        QString pcm;     // its decoded audio in the work folder
        std::int64_t samples = 0;
    };

    using Progress = std::function<void(double fraction)>;

    explicit GaplessSliceEncoder(std::shared_ptr<const FFmpegAudioEncoder> encoder);

    // Called as each source's decode is complete, with its sample count.
    using SourceDecoded = std::function<void(int source, std::int64_t samples)>;

    // Step 1, sources in parallel. Throws as the encoder's jobs do, naming
    // the source that failed.
    std::vector<DecodedSource> decodeSources(const QStringList& sources, const std::vector<QString>& codecs, int sampleRate,
                                             int channels, const QString& workDir, const ConcurrencyPlan& concurrency,
                                             const std::shared_ptr<const CancellationToken>& token,
                                             const Progress& progress, const SourceDecoded& decoded = {}) const;

    // Where source i's decoded audio is written, growing while it decodes.
    static QString pcmPath(const QString& workDir, int source);

    // The packet size and priming of the encoder these settings use, from a
    // short encode of silence.
    EncoderFraming probeFraming(const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir,
                                const CancellationToken& token) const;

    // Step 2 for one slice: encodes slice i of the plan from the decoded
    // audio into its work file (sliceFile). The stretches the slice reads
    // must be decoded that far.
    void encodeSlice(const SlicePlan& plan, int i, const std::vector<Stretch>& timeline,
                     const std::vector<DecodedSource>& sources, const FFmpegAudioEncoder::OutputSpec& spec,
                     const QString& workDir, int threads, const CancellationToken& token, const Progress& progress) const;
    static QString sliceFile(const QString& workDir, int slice);

    // Step 3: joins the plan's encoded slices (sliceFile) into `output`
    // (M4B/M4A), each slice's own packets in order. Checks that the joined
    // packets hold the plan's samples within one frame, and throws
    // FFmpegEncoderError when they do not.
    void join(const SlicePlan& plan, const FFmpegAudioEncoder::OutputSpec& spec, const QString& workDir,
              const QString& output, const CancellationToken& token, const Progress& progress) const;

    // The ffmpeg input that reads samples [from, to) of the timeline from the
    // decoded sources: a subfile of one PCM file, or a concat of several.
    static QString inputURL(const std::vector<Stretch>& timeline, const std::vector<DecodedSource>& sources,
                            std::int64_t from, std::int64_t to, int channels);

    // Byte offset and length of every ADTS frame in data; stops at the first
    // bytes that are not one.
    static std::vector<std::pair<qsizetype, int>> adtsFrames(const QByteArray& data);

private:
    // The names of the user's files a slice reads, for a failure's message.
    static QStringList sourceNames(const PlannedSlice& slice, const std::vector<Stretch>& timeline,
                                   const std::vector<DecodedSource>& sources);

    std::shared_ptr<const FFmpegAudioEncoder> encoder_;
};

} // namespace folivox
