#pragma once

#include "core/settings/ExportSettingsEnums.h"
#include "process/CancellationToken.h"
#include "export/strategies/ConcatList.h"
#include "export/strategies/ConcurrencyPlan.h"
#include "process/EncoderCatalog.h"
#include "export/engine/ExportFailureContext.h"
#include "process/FFmpegResult.h"
#include "export/strategies/SegmentPlanner.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace folivox {

class FFmpegWrapper;

// The exact length of an MP4 audio file as a concat join lays it out.
struct SegmentTiming {
    // Every frame the file holds, the encoder's priming frame and final
    // padding included, in seconds: the audio track's frame count times its
    // frame length over the media timescale. This is how much audio the
    // file's frames decode to, and so how much of the joined timeline it
    // takes when the pieces tile with no overlap.
    double span = 0.0;
    // Where the file's presentation starts (an empty edit at the front of its
    // edit list), in seconds; zero for files ffmpeg writes.
    double startTime = 0.0;
    // The length the file's edit list presents (priming and padding cut).
    double presentedDuration = 0.0;
    // Samples at the front that the edit list skips (the encoder's priming).
    std::int64_t priming = 0;
    std::int64_t sampleCount = 0;
    std::uint32_t timescale = 0;
};

// Runs the encoding jobs of a build with ffmpeg: the segments in parallel,
// then the joins by stream copy. Owns the argument lists of every job.
class FFmpegAudioEncoder {
public:
    // What the encoded audio should be.
    struct OutputSpec {
        OutputFormat format = OutputFormat::m4b;
        AudioCodec codec = AudioCodec::aacLC;
        int bitrateKbps = 128;
        std::optional<int> channels;   // "-ac"; none keeps the source's
        std::optional<int> sampleRate; // "-ar"; none keeps the source's
    };

    using ProgressCallback = std::function<void(double fraction)>;
    // One job of a parallel run; throws on failure.
    using Job = std::function<void(int index, const CancellationToken& token)>;

    static constexpr int kCascadeThreshold = 81;

    // Without a catalog, the system's is listed when an encode first needs it,
    // so a build that only copies never runs `ffmpeg -encoders`.
    explicit FFmpegAudioEncoder(std::shared_ptr<const FFmpegWrapper> wrapper,
                                std::optional<EncoderCatalog> catalog = std::nullopt,
                                QString logPrefix = QStringLiteral("[BatchEncoding]"));

    const FFmpegWrapper& wrapper() const { return *wrapper_; }
    std::shared_ptr<const FFmpegWrapper> sharedWrapper() const { return wrapper_; }
    const EncoderCatalog& catalog() const { return catalog_ ? *catalog_ : EncoderCatalog::system(); }

    // The encoder block of a job: "-c:a copy" for a copied segment; for an
    // encode, "-ac"/"-ar" as the settings require, then the catalog's encoder for
    // the codec (its profile option included) and "-b:a <rate>k". Throws
    // EncoderCatalogError when the encoder is missing.
    QStringList encoderBlock(const OutputSpec& spec, bool copy) const;

    // "ipod" (ffmpeg's M4A/M4B muxer) for m4b and m4a, "mp3" for mp3.
    static QString muxerName(OutputFormat format);
    static QString segmentExtension(OutputFormat format);

    // One stretch of one file: -ss, [-c:a aac_at for xHE-AAC], -i, -vn,
    // -map_chapters -1, -threads, the encoder block, [-t], -f, -y, output.
    // "-t" is left out when the stretch runs to the end of its file.
    static QStringList stretchArguments(const SegmentPiece& piece, const QStringList& encoderBlock, int threads,
                                        const QString& muxer, const QString& output,
                                        const QStringList& inputDecoder = {});
    // Several files through the concat demuxer.
    static QStringList concatArguments(const QString& listPath, const QStringList& encoderBlock, int threads,
                                       const QString& muxer, const QString& output);
    // A piece of a cross-file chapter cut to lossless FLAC (44.1 kHz stereo,
    // 16 bit). The last piece of a chapter that ends inside its file fades
    // out over fadeOutSeconds so the cut does not click.
    static QStringList extractArguments(const SegmentPiece& piece, const QString& output,
                                        std::optional<double> fadeOutSeconds);
    // The parts of one chapter joined by copy.
    static QStringList mergeArguments(const QString& listPath, const QString& output);
    // The final join by copy.
    static QStringList joinArguments(const QString& listPath, const QString& output, const QString& muxer);

    // Encodes every segment of the plan into workDir ("segment_%03d.<ext>"),
    // n at a time; returns the files in segment order. The first failure
    // cancels the rest and is the error thrown. Throws
    // FFmpegEncoderError (cancelled, incompleteEncoding, a job's failure with
    // its ExportFailureContext), ExportError (corruptedSourceRequiresTranscode
    // for a copied segment whose source is damaged; the full-disk message),
    // EncoderCatalogError.
    std::vector<QString> encodeSegments(const SegmentPlan& plan, const OutputSpec& spec, const QString& workDir,
                                        const ConcurrencyPlan& concurrency,
                                        const std::shared_ptr<const CancellationToken>& token,
                                        const ProgressCallback& progress = {}) const;

    // A concat list on which MP4 audio files tile the timeline: each entry's
    // "duration" is where the next file's first frame (its priming included)
    // must begin, so no frame overlaps another and none is dropped.
    // `offsets` are where each file's first presented sample lies in the
    // joined file.
    struct TiledList {
        ConcatList list;
        std::vector<double> offsets;
        // Where the last file's presented audio ends.
        double presentedEnd = 0.0;
    };
    static TiledList tile(const QStringList& files);

    // Joins one chapter's parts into "chapter_%03d_merged.m4a" (index 1-based).
    QString mergeChapter(int chapterNumber, const QStringList& parts, const QString& workDir,
                         const CancellationToken& token) const;

    // Joins files into output by stream copy, tiled as above; 81 files or
    // more are joined in two stages. Checks the output. Returns where each
    // file's audio begins in the output, in seconds; the first file's at 0
    // (its priming frame plays as the first milliseconds of the book).
    std::vector<double> join(const QStringList& files, const QString& output, const QString& workDir,
                             OutputFormat format, const CancellationToken& token,
                             const ProgressCallback& progress = {}) const;

    // Reads the timing of an MP4 file from its sample tables (no decode).
    // Throws when the file has no readable audio track.
    static SegmentTiming measure(const QString& path);

    // Runs count jobs on `jobs` threads. Each job gets a token that is
    // cancelled by the user's token or by the first failure. Once all have
    // ended: the user's cancel wins, then the first real failure, then a
    // count of finished jobs that differs from count (incompleteEncoding).
    static void runParallel(int count, int jobs, const std::shared_ptr<const CancellationToken>& userToken,
                            const Job& job, const QString& logTag = QStringLiteral("[BatchEncoding]"));

    // True for the errors that mean "stopped because cancelled".
    static bool isCancellation(const std::exception_ptr& error);

    // Throws the error for a failed run: a cancel, the full-disk message,
    // corruptedSourceRequiresTranscode when a copied source is damaged, or
    // the job's failure with its context.
    [[noreturn]] static void throwFailure(const FFmpegResult& result, const CancellationToken& token, bool copyPath,
                                          const std::optional<ExportFailureContext>& context);

    static ExportFailureContext failureContext(const PlannedSegment& segment, const FFmpegResult& result);

    // Encodes (or copies) one segment into output, with `threads` threads.
    // Throws as encodeSegments does for one job.
    void encodeSegment(const PlannedSegment& segment, const OutputSpec& spec, const QString& workDir, int threads,
                       const QString& output, const CancellationToken& token,
                       const ProgressCallback& progress = {}) const;

private:
    std::vector<double> runJoin(const QStringList& files, const QString& listPath, const QString& output,
                                const QString& muxer, const CancellationToken& token,
                                const ProgressCallback& progress, const QString& failurePrefix) const;

    std::shared_ptr<const FFmpegWrapper> wrapper_;
    std::optional<EncoderCatalog> catalog_;
    QString logPrefix_;
};

} // namespace folivox
