#include "export/decision/ExportDecisionService.h"

#include "platform/Error.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <cmath>
#include <exception>
#include <set>

namespace folivox {

namespace {

constexpr int kMaxNormalizedSampleRate = 48000;

QString fileName(const QUrl& url)
{
    return QFileInfo(url.toLocalFile()).fileName();
}

QString targetName(AudioCodec codec)
{
    return codec == AudioCodec::heAAC ? QStringLiteral("heAAC") : QStringLiteral("aacLC");
}

const Track* firstTrackFor(const std::vector<Bookmark>& bookmarks, const QUrl& url)
{
    for (const Bookmark& bookmark : bookmarks) {
        for (const Track& track : bookmark.tracks) {
            if (track.url == url)
                return &track;
        }
    }
    return nullptr;
}

std::optional<FormatProbe> callProbe(const FormatProbeFunction& probe, const QString& path, QString* error)
{
    try {
        return probe(path);
    } catch (const Error& e) {
        *error = e.description();
    } catch (const std::exception& e) {
        *error = QString::fromLocal8Bit(e.what());
    }
    return std::nullopt;
}

bool known(const std::optional<FormatProbe>& format)
{
    return format && !format->codec.isEmpty();
}

// Whether some file is not taken whole by the chapters together. Each file's
// stretches, sorted by start, must begin at the file's start (within 0.01 s),
// follow one another without a gap or overlap of more than 0.1 s, and reach
// the file's end (within 0.1 s), unless the plan already marked a stretch as
// the whole file.
bool findPartialRanges(const ExportPlanBuilder::Plan& plan, const QHash<QUrl, std::optional<double>>& durations)
{
    struct Span {
        double start;
        double end;
        bool whole;
    };
    QHash<QUrl, std::vector<Span>> spans;
    for (const ChapterInput& chapter : plan.chapters) {
        for (const ExportPlanBuilder::Piece& piece : ExportPlanBuilder::pieces(chapter))
            spans[piece.url].push_back(Span{piece.range.start, piece.range.end(), piece.wholeFile});
    }

    for (auto it = spans.begin(); it != spans.end(); ++it) {
        std::vector<Span>& list = it.value();
        const std::optional<double> duration = durations.value(it.key());
        for (Span& span : list) {
            if (span.whole) {
                span.start = 0.0;
                if (duration)
                    span.end = std::max(span.end, *duration);
            }
        }
        std::sort(list.begin(), list.end(), [](const Span& a, const Span& b) { return a.start < b.start; });

        double cursor = 0.0;
        bool reachesEnd = false;
        for (std::size_t i = 0; i < list.size(); ++i) {
            const Span& span = list[i];
            if (i == 0) {
                if (span.start > ExportPlanBuilder::kStartTolerance)
                    return true;
            } else if (std::abs(span.start - cursor) > ExportPlanBuilder::kEndTolerance) {
                return true; // a gap between chapters, or a stretch taken twice
            }
            cursor = std::max(cursor, span.end);
            reachesEnd = reachesEnd || span.whole;
        }
        if (!reachesEnd && !(duration && cursor >= *duration - ExportPlanBuilder::kEndTolerance))
            return true;
    }
    return false;
}

// Whether the chapters, taken in order, no longer follow their files. Files
// are numbered in order of first use; a stretch of an earlier file after a
// later one has begun, or a start that goes back within one file, is a
// reorder. The running time restarts at -1.0 for every file.
bool findReorder(const ExportPlanBuilder::Plan& plan)
{
    qsizetype runningFile = -1;
    double runningTime = -1.0;
    for (const ChapterInput& chapter : plan.chapters) {
        for (const ExportPlanBuilder::Piece& piece : ExportPlanBuilder::pieces(chapter)) {
            const qsizetype file = plan.uniqueURLs.indexOf(piece.url);
            if (file < runningFile)
                return true;
            if (file > runningFile) {
                runningFile = file;
                runningTime = -1.0;
            }
            if (piece.range.start < runningTime - ExportPlanBuilder::kStartTolerance)
                return true;
            runningTime = piece.range.start;
        }
    }
    return false;
}

} // namespace

// ---------------------------------------------------------------- rules

bool ExportDecisionService::isAACCodec(const QString& codec)
{
    return matchesCodecFamily(codec, AudioCodec::aacLC) || matchesCodecFamily(codec, AudioCodec::heAAC);
}

bool ExportDecisionService::matchesCodecFamily(const QString& codec, AudioCodec target)
{
    const QString c = codec.toLower();
    if (target == AudioCodec::heAAC)
        return c == u"he-aac" || c == u"he-aacv2";
    return c == u"aac-lc" || c == u"aac" || c == u"mp4a";
}

QString ExportDecisionService::codecFamily(const QString& codec)
{
    if (matchesCodecFamily(codec, AudioCodec::heAAC))
        return QStringLiteral("heAAC");
    if (matchesCodecFamily(codec, AudioCodec::aacLC))
        return QStringLiteral("aacLC");
    return codec.toLower();
}

int ExportDecisionService::bitrateToleranceKbps(int targetKbps)
{
    return targetKbps < 50 ? 5 : targetKbps / 10;
}

std::optional<QString> ExportDecisionService::bitrateReduction(std::optional<int> sourceBitrate,
                                                                const ExportSettings& settings)
{
    if (!settings.cbrBitrateKbps || settings.keepSourceBitrate)
        return std::nullopt;
    if (!sourceBitrate || *sourceBitrate <= 0)
        return std::nullopt;
    const int source = *sourceBitrate / 1000;
    const int target = *settings.cbrBitrateKbps;
    if (source <= target + bitrateToleranceKbps(target))
        return std::nullopt;
    return QStringLiteral("bitrate reduction (source %1 kbps → target %2 kbps)").arg(source).arg(target);
}

std::optional<DecisionFactors::NormalizationTarget>
ExportDecisionService::normalizationTarget(const std::vector<std::optional<FormatProbe>>& formats)
{
    std::set<int> rates;
    std::set<int> channels;
    for (const auto& format : formats) {
        if (!known(format))
            continue;
        if (format->sampleRate > 0)
            rates.insert(format->sampleRate);
        if (format->channels > 0)
            channels.insert(format->channels);
    }
    if (rates.size() <= 1 && channels.size() <= 1)
        return std::nullopt;
    DecisionFactors::NormalizationTarget target;
    target.sampleRate = rates.empty() ? 0 : std::min(*rates.rbegin(), kMaxNormalizedSampleRate);
    target.channels = !channels.empty() && *channels.rbegin() >= 2 ? 2 : 1;
    return target;
}

// ---------------------------------------------------------------- the pass and the decision

ExportCacheFreshness::Result ExportDecisionService::refreshCachedFormats(const std::vector<Bookmark>& bookmarks) const
{
    statMemo->clear();
    return ExportCacheFreshness(inspector, statMemo, reprobeDeadline).run(bookmarks);
}

std::vector<std::optional<FormatProbe>> ExportDecisionService::sourceFormats(const std::vector<Bookmark>& bookmarks,
                                                                             const ExportPlanBuilder::Plan& plan) const
{
    std::vector<std::optional<FormatProbe>> formats;
    formats.reserve(static_cast<std::size_t>(plan.uniqueURLs.size()));
    for (const QUrl& url : plan.uniqueURLs) {
        const Track* track = firstTrackFor(bookmarks, url);
        if (track && track->hasCachedFormat()) {
            formats.push_back(FormatProbe::fromCached(*track));
            continue;
        }
        const QString path = url.toLocalFile();
        const QString name = fileName(url);
        std::optional<FormatProbe> format;
        QString error;
        if (statMemo && statMemo->probeFailed(path)) {
            Log::write(QStringLiteral("[Export] Format of %1 unknown (re-probe failed) — counts against a copy")
                           .arg(name));
            formats.push_back(std::nullopt);
            continue;
        }
        if (displayProbes)
            format = callProbe(displayProbes, path, &error);
        if (!known(format) && inspector) {
            Log::write(QStringLiteral("[Export] Probing format of %1 (not cached)").arg(name));
            format = callProbe(inspector, path, &error);
        }
        if (known(format)) {
            format->codec = format->codec.toLower();
            formats.push_back(format);
            continue;
        }
        if (statMemo)
            statMemo->noteProbeFailure(path);
        Log::write(QStringLiteral("[Export] Format of %1 unknown%2 — counts against a copy")
                       .arg(name, error.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(error)));
        formats.push_back(std::nullopt);
    }
    return formats;
}

DecisionFactors ExportDecisionService::factors(const std::vector<Bookmark>& bookmarks, const ExportSettings& settings,
                                               const ExportPlanBuilder::Plan& plan, bool reencodeRequested) const
{
    DecisionFactors f;
    const std::vector<std::optional<FormatProbe>> formats = sourceFormats(bookmarks, plan);

    // Codec and container of the sources.
    for (std::size_t i = 0; i < formats.size(); ++i) {
        const auto& format = formats[i];
        const QUrl& url = plan.uniqueURLs.at(static_cast<qsizetype>(i));
        if (QFileInfo(url.fileName()).suffix().toLower() != u"m4b")
            f.allM4B = false;
        if (!known(format)) {
            f.allAAC = false;
            f.codecMatches = false;
            continue;
        }
        if (!isAACCodec(format->codec))
            f.allAAC = false;
        if (!matchesCodecFamily(format->codec, settings.codec)) {
            f.codecMatches = false;
            if (!f.codecMismatchDescription) {
                f.codecMismatchDescription =
                    QStringLiteral("codec mismatch (%1 ↔ %2)").arg(format->codec, targetName(settings.codec));
            }
        }
    }

    // Whether the sources can be joined as they are.
    for (const auto& format : formats) {
        if (!known(format) || format->sampleRate <= 0 || format->channels <= 0) {
            f.compatible = false;
            break;
        }
        const auto& first = formats.front();
        if (codecFamily(format->codec) != codecFamily(first->codec) || format->sampleRate != first->sampleRate
            || format->channels != first->channels) {
            f.compatible = false;
            break;
        }
    }

    // Settings that change the audio.
    if (const std::optional<int> wanted = channelCount(settings.channels)) {
        f.requiresChannelChange = std::any_of(formats.begin(), formats.end(), [&](const auto& format) {
            return !known(format) || format->channels != *wanted;
        });
    }
    if (const std::optional<int> wanted = sampleRateHz(settings.sampleRate)) {
        f.requiresResample = std::any_of(formats.begin(), formats.end(), [&](const auto& format) {
            return !known(format) || format->sampleRate != *wanted;
        });
    }
    f.requiresSplit = settings.splitMode != SplitMode::off;
    f.requiresSnap = f.requiresSplit && settings.snapToChapters;
    f.requiresReencode = reencodeRequested;

    // The bitrate rule compares the highest source bitrate: when any source
    // is well above the target, the book is encoded down.
    std::optional<int> highestBitrate;
    for (const auto& format : formats) {
        if (known(format) && format->bitrate && *format->bitrate > 0)
            highestBitrate = std::max(highestBitrate.value_or(0), *format->bitrate);
    }
    f.bitrateChangeReason = bitrateReduction(highestBitrate, settings);
    f.requiresBitrateChange = f.bitrateChangeReason.has_value();

    f.policyDisabled = settings.passthroughPolicy == PassthroughPolicy::disabled;

    // How the chapters take their files.
    QHash<QUrl, std::optional<double>> durations;
    std::vector<Track> allTracks;
    for (const Bookmark& bookmark : bookmarks)
        allTracks.insert(allTracks.end(), bookmark.tracks.begin(), bookmark.tracks.end());
    for (std::size_t i = 0; i < formats.size(); ++i) {
        const QUrl& url = plan.uniqueURLs.at(static_cast<qsizetype>(i));
        std::optional<double> duration;
        if (const Track* track = firstTrackFor(bookmarks, url))
            duration = ExportPlanBuilder::knownDuration(*track, allTracks);
        if (!duration && known(formats[i]) && formats[i]->duration > 0)
            duration = formats[i]->duration;
        if (!duration && syncDurationProbe) {
            const std::optional<double> measured = syncDurationProbe(url.toLocalFile());
            if (measured && std::isfinite(*measured) && *measured > 0)
                duration = measured;
        }
        durations.insert(url, duration);
    }
    f.hasPartialRanges = findPartialRanges(plan, durations);
    f.chaptersReordered = findReorder(plan);

    f.crossFileNormalizationTarget = normalizationTarget(formats);
    f.requiresCrossFileNormalization = f.crossFileNormalizationTarget.has_value();
    return f;
}

QStringList ExportDecisionService::reasons(const DecisionFactors& f, const ExportSettings& settings)
{
    QStringList out;
    if (settings.outputFormat == OutputFormat::m4b) {
        if (!f.allAAC)
            out << QStringLiteral("non-AAC source");
        // Forced passthrough copies AAC from any MP4 file: an .m4a and the
        // same bytes named .m4b give the same book.
        if (!f.allM4B && settings.passthroughPolicy != PassthroughPolicy::force)
            out << QStringLiteral("source is not M4B (audiobook format)");
        if (!f.codecMatches)
            out << f.codecMismatchDescription.value_or(QStringLiteral("codec mismatch"));
        if (!f.compatible)
            out << QStringLiteral("format mismatch");
    }
    if (f.policyDisabled)
        out << QStringLiteral("policy disabled");
    if (f.requiresChannelChange)
        out << QStringLiteral("channel count differs from source");
    if (f.requiresResample)
        out << QStringLiteral("sample rate differs from source");
    if (f.requiresSplit)
        out << QStringLiteral("split enabled");
    if (f.requiresSnap)
        out << QStringLiteral("snapToChapters enabled");
    if (f.requiresReencode)
        out << QStringLiteral("re-encoding requested");
    if (f.requiresBitrateChange && settings.passthroughPolicy != PassthroughPolicy::force)
        out << f.bitrateChangeReason.value_or(QStringLiteral("bitrate reduction"));
    if (f.hasPartialRanges)
        out << QStringLiteral("partial M4B range extraction (startOffset or duration trimming)");
    if (f.chaptersReordered)
        out << QStringLiteral("chapters reordered (drag & drop or deletion)");
    if (f.requiresCrossFileNormalization) {
        const auto target = f.crossFileNormalizationTarget.value_or(DecisionFactors::NormalizationTarget{});
        out << QStringLiteral("audio normalization (%1 Hz, %2)")
                   .arg(target.sampleRate)
                   .arg(target.channels == 1 ? QStringLiteral("mono") : QStringLiteral("stereo"));
    }
    return out;
}

ExportDecision ExportDecisionService::decide(const std::vector<Bookmark>& bookmarks, const ExportSettings& settings,
                                             const ExportPlanBuilder::Plan& plan, bool reencodeRequested) const
{
    const DecisionFactors f = factors(bookmarks, settings, plan, reencodeRequested);
    ExportDecision decision;
    decision.reasons = reasons(f, settings);
    decision.canPassthrough = decision.reasons.isEmpty();
    decision.strategy = chooseStrategy(settings, f, decision.reasons, plan);
    if (f.requiresCrossFileNormalization)
        decision.normalizationTarget = f.crossFileNormalizationTarget;
    Log::write(QStringLiteral("[Export] Decision factors: ") + f.describe());
    Log::write(QStringLiteral("[Export] ") + decision.logLine());
    return decision;
}

} // namespace folivox
