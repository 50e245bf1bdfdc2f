#include "export/strategies/SplitTranscodeStrategy.h"

#include "export/engine/ExportPrologue.h"
#include "export/settings/ExportSettingsValidator.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cmath>

namespace folivox {

namespace {

// Stretches shorter than this at a part's edge are not worth a part of their own.
constexpr double kSliver = 0.5;
// A part may run over its limit by this much (frame rounding of the planned times).
constexpr double kLimitSlack = 1.0;

QString clock(double seconds)
{
    const qint64 s = static_cast<qint64>(std::llround(seconds));
    return QStringLiteral("%1:%2:%3").arg(s / 3600).arg((s / 60) % 60, 2, 10, QChar(u'0')).arg(s % 60, 2, 10, QChar(u'0'));
}

QString pathOf(const QUrl& url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.toString();
}

double pieceLength(const ExportPlanBuilder::Piece& piece, const QHash<QString, SourceFacts>& facts)
{
    if (piece.range.duration > 0)
        return piece.range.duration;
    const auto it = facts.constFind(pathOf(piece.url));
    return it != facts.constEnd() ? std::max(0.0, it->duration - piece.range.start) : 0.0;
}

} // namespace

SplitTranscodeStrategy::SplitTranscodeStrategy(std::shared_ptr<MetadataWritingService> metadataService,
                                               std::shared_ptr<const FFmpegAudioEncoder> encoder)
    : BaseExportStrategy(std::move(metadataService))
    , encoder_(std::move(encoder))
{
}

double SplitTranscodeStrategy::partLimitSeconds(const ExportSettings& settings, int bitrateKbps)
{
    ExportSettingsValidator::validate(settings);
    if (settings.splitMode == SplitMode::bySize) {
        // The container adds a little to the audio; keep 2% for it.
        const double bytesPerSecond = std::max(1, bitrateKbps) * 1000.0 / 8.0;
        return double(settings.splitSizeMB) * 1000.0 * 1000.0 * 0.98 / bytesPerSecond;
    }
    if (settings.splitHours <= 0)
        throw ExportError::validationFailed(QStringLiteral("splitHours must be > 0 for split export"));
    return settings.splitHours * 3600.0;
}

std::vector<SplitTranscodeStrategy::Part> SplitTranscodeStrategy::planParts(const std::vector<double>& lengths,
                                                                            double limit, bool snap)
{
    double total = 0;
    for (double l : lengths)
        total += std::max(0.0, l);
    if (lengths.empty())
        throw ExportError::validationFailed(QStringLiteral("No bookmarks available for split export"));
    if (total <= 0)
        throw ExportError::validationFailed(QStringLiteral("Total duration is zero (no valid audio tracks)"));
    const int count = std::max(1, static_cast<int>(std::ceil(total / limit - 1e-9)));
    const double target = total / count;

    std::vector<Part> parts(1);
    auto add = [&parts](int chapter, double from, double to) {
        parts.back().slices.push_back({chapter, from, to});
        parts.back().duration += to - from;
    };
    auto close = [&parts]() {
        if (!parts.back().slices.empty())
            parts.emplace_back();
    };

    if (!snap) {
        // Cut at every multiple of the target, wherever it falls; a cut that
        // would leave a sliver moves to the chapter's edge.
        double at = 0;
        int nextCut = 1;
        for (int c = 0; c < static_cast<int>(lengths.size()); ++c) {
            const double length = std::max(0.0, lengths[std::size_t(c)]);
            double from = 0;
            while (nextCut < count && at + length - nextCut * target > kSliver) {
                const double cut = nextCut * target - at;
                ++nextCut;
                if (cut <= from + kSliver) {
                    close();
                    continue;
                }
                add(c, from, cut);
                close();
                from = cut;
            }
            if (length - from > 0)
                add(c, from, length);
            at += length;
        }
    } else {
        // Chapters as units; only a chapter longer than a whole part is cut.
        std::vector<Slice> units;
        for (int c = 0; c < static_cast<int>(lengths.size()); ++c) {
            const double length = std::max(0.0, lengths[std::size_t(c)]);
            if (length <= 0)
                continue;
            const int pieces = length > limit ? static_cast<int>(std::ceil(length / limit - 1e-9)) : 1;
            for (int k = 0; k < pieces; ++k)
                units.push_back({c, length * k / pieces, length * (k + 1) / pieces});
        }
        std::vector<double> ends;
        double at = 0;
        for (const Slice& u : units) {
            at += u.to - u.from;
            ends.push_back(at);
        }
        const int unitCount = static_cast<int>(units.size());
        // The fewest parts for which every boundary can sit on a unit's end
        // near its share of the whole without any part passing the limit.
        std::vector<int> chosen;
        bool found = false;
        for (int n = count; n <= unitCount && !found; ++n) {
            chosen.clear();
            double previousEnd = 0;
            int previous = -1;
            bool ok = true;
            for (int k = 1; k < n && ok; ++k) {
                const double ideal = total * k / n;
                int best = -1;
                for (int j = previous + 1; j < unitCount - (n - k); ++j) {
                    const double end = ends[std::size_t(j)];
                    if (end - previousEnd > limit + 1e-6)
                        break;
                    if (total - end > (n - k) * limit + 1e-6)
                        continue;
                    if (best < 0 || std::abs(end - ideal) < std::abs(ends[std::size_t(best)] - ideal))
                        best = j;
                }
                if (best < 0) {
                    ok = false;
                    break;
                }
                chosen.push_back(best);
                previousEnd = ends[std::size_t(best)];
                previous = best;
            }
            found = ok && total - previousEnd <= limit + 1e-6;
        }
        if (!found) {
            chosen.clear();
            for (int j = 0; j + 1 < unitCount; ++j)
                chosen.push_back(j);
        }
        std::size_t next = 0;
        for (int j = 0; j < unitCount; ++j) {
            const Slice& u = units[std::size_t(j)];
            add(u.chapter, u.from, u.to);
            if (next < chosen.size() && chosen[next] == j) {
                close();
                ++next;
            }
        }
    }
    if (parts.back().slices.empty())
        parts.pop_back();

    for (std::size_t p = 0; p < parts.size(); ++p) {
        if (parts[p].duration <= limit + kLimitSlack)
            continue;
        if (p + 1 == parts.size())
            throw ExportError::validationFailed(QStringLiteral("Final part duration (%1) exceeds maximum allowed (%2)")
                                                    .arg(clock(parts[p].duration), clock(limit)));
        throw ExportError::validationFailed(QStringLiteral("Last part duration %1 exceeds maximum %2")
                                                .arg(clock(parts[p].duration), clock(limit)));
    }
    return parts;
}

double SplitTranscodeStrategy::chapterLength(const ChapterInput& chapter, const QHash<QString, SourceFacts>& facts)
{
    double total = 0;
    for (const auto& piece : ExportPlanBuilder::pieces(chapter))
        total += pieceLength(piece, facts);
    return total;
}

ChapterInput SplitTranscodeStrategy::slice(const ChapterInput& chapter, double from, double to,
                                           const QHash<QString, SourceFacts>& facts)
{
    ChapterInput out;
    out.title = chapter.title;
    std::vector<MediaTimeRange> ranges;
    std::vector<bool> full;
    double at = 0;
    for (const auto& piece : ExportPlanBuilder::pieces(chapter)) {
        const double length = pieceLength(piece, facts);
        const double a = std::max(from, at);
        const double b = std::min(to, at + length);
        if (b - a > 1e-6) {
            const double start = (piece.wholeFile ? 0.0 : piece.range.start) + (a - at);
            const bool whole = piece.wholeFile && a - at <= 0.01 && at + length - b <= 0.01;
            out.files.append(piece.url);
            ranges.push_back({start, b - a});
            full.push_back(whole);
        }
        at += length;
    }
    if (out.files.size() == 1) {
        out.timeRange = ranges.front();
        out.wholeFileCandidate = full.front();
    } else {
        out.segmentRanges = ranges;
        out.segmentFullTrack = full;
    }
    return out;
}

QString SplitTranscodeStrategy::partPath(const QString& output, int number)
{
    const QFileInfo info(output);
    const QString suffix = info.suffix().isEmpty() ? QStringLiteral("m4b") : info.suffix();
    return QDir(info.absolutePath()).filePath(info.completeBaseName() + QStringLiteral(" - Part ")
                                              + QString::number(number) + u'.' + suffix);
}

QString SplitTranscodeStrategy::partTitle(const QString& title, int number)
{
    return L10n::format(L10n::text("export.split.chapter.part", "%@ (Part %d)"), {title, QString::number(number)});
}

ExportOutcome SplitTranscodeStrategy::run(ExportContext& context)
{
    QElapsedTimer wall;
    wall.start();
    Log::write(QStringLiteral("[Split] ========== STRATEGY STARTED =========="));
    beginProgress(context, {});
    const std::vector<ChapterInput>& chapters = context.plan.chapters;
    if (chapters.empty())
        throw ExportError::validationFailed(QStringLiteral("No bookmarks available for split export"));

    const QHash<QString, SourceFacts> facts = SegmentPlanner::factsFromTracks(context.allTracks);
    const FFmpegAudioEncoder::OutputSpec spec = resolveOutputSpec(context, facts);
    const double limit = partLimitSeconds(context.settings, spec.bitrateKbps);
    std::vector<double> lengths;
    for (const ChapterInput& c : chapters)
        lengths.push_back(chapterLength(c, facts));
    const std::vector<Part> parts = planParts(lengths, limit, context.settings.snapToChapters);
    const int count = static_cast<int>(parts.size());
    Log::write(QStringLiteral("[Split] %1 parts of at most %2 (snapToChapters=%3)")
                   .arg(count)
                   .arg(clock(limit))
                   .arg(context.settings.snapToChapters ? QStringLiteral("true") : QStringLiteral("false")));

    std::vector<QString> targets;
    for (int p = 0; p < count; ++p) {
        targets.push_back(partPath(context.outputURL, p + 1));
        if (ExportPrologue::isProtected(targets.back(), context.protectedSourceIdentities)) {
            Log::write(QStringLiteral("[Split] '") + fileName(targets.back())
                       + QStringLiteral("' is one of the book's own files (.folivox-no-free-name)"));
            throw ExportError::validationFailed(
                L10n::format(L10n::text("export.error.no.free.name",
                                        "Folivox can't find a free name for “%@” in this folder — it would have to "
                                        "write over one of the book's own files."),
                             {fileName(targets.back())}));
        }
    }

    const QByteArray cover = renderCover(context);
    WorkDirectory work = makeWorkDirectory();
    TranscodeStrategy transcoder(nullptr, encoder_);
    double total = 0;
    for (const Part& part : parts)
        total += part.duration;
    double before = 0;
    std::vector<QString> finished;
    std::vector<ExportedChapter> exported;
    for (int p = 0; p < count; ++p) {
        context.throwIfCancelled();
        const Part& part = parts[std::size_t(p)];
        const QString title = exportPhaseTitle(ExportPhase::part, p + 1, count);
        const double share = total > 0 ? part.duration / total : 1.0 / count;
        const double base = total > 0 ? before / total : double(p) / count;
        auto partProgress = [&](double f) { progressCoalescer_.reportOverall(ExportPhase::part, base + share * f, title); };
        partProgress(0);
        Log::write(QStringLiteral("[Split] ===== PART %1/%2: %3 chapters, %4 =====")
                       .arg(p + 1)
                       .arg(count)
                       .arg(part.slices.size())
                       .arg(clock(part.duration)));

        std::vector<ChapterInput> partChapters;
        std::vector<int> planChapters;
        for (const Slice& s : part.slices) {
            const ChapterInput& whole = chapters[std::size_t(s.chapter)];
            const bool all = s.from <= 1e-6 && std::abs(s.to - lengths[std::size_t(s.chapter)]) <= 1e-6;
            partChapters.push_back(all ? whole : slice(whole, s.from, s.to, facts));
            planChapters.push_back(s.chapter);
        }
        const QString partDir = work.filePath(QStringLiteral("part_%1").arg(p + 1));
        QDir().mkpath(partDir);
        const QString output = QDir(partDir).filePath(fileName(targets[std::size_t(p)]));
        const TranscodeStrategy::EncodedBook book =
            transcoder.encodeBook(context, partChapters, planChapters, partDir, output, [&](ExportPhase phase, double f) {
                partProgress(phase == ExportPhase::encoding ? 0.9 * f : 0.9 + 0.05 * f);
            });

        // Every part keeps the book's album; its own title and disc number
        // say which part it is.
        finishFile(context, output, context.metadata, chapterInfos(context, book.chapters), cover,
                   FilePlacement::disc(partTitle(context.metadata.title, p + 1), p + 1, static_cast<int>(parts.size())));
        partProgress(1.0);
        for (ExportedChapter c : book.chapters) {
            c.file = targets[std::size_t(p)];
            exported.push_back(c);
        }
        finished.push_back(output);
        before += part.duration;
    }

    // Into place: parts already standing there go aside first, and come back
    // if the new ones cannot all be put in place.
    context.throwIfCancelled();
    std::vector<std::pair<QString, QString>> aside; // target, aside path
    int unmovable = 0;
    for (const QString& target : targets) {
        if (!QFileInfo::exists(target))
            continue;
        const QString moved = QDir(QFileInfo(target).absolutePath())
                                  .filePath(u'.' + fileName(target) + QStringLiteral(".folivox-aside-")
                                            + QUuid::createUuid().toString(QUuid::WithoutBraces).left(8));
        if (QFile::rename(target, moved)) {
            aside.emplace_back(target, moved);
        } else {
            ++unmovable;
            Log::write(QStringLiteral("[Split] could not move '") + fileName(target)
                       + QStringLiteral("' aside (the folder refuses new names") + QStringLiteral(
                           ") — it will be replaced, and a cancel will NOT delete what is left there"));
        }
    }
    if (!aside.empty() || unmovable > 0)
        Log::write(QStringLiteral("[Split] %1 existing part(s) moved aside; %2 to be replaced in place")
                       .arg(aside.size())
                       .arg(unmovable));
    QStringList placed;
    try {
        for (int p = 0; p < count; ++p) {
            const QString& target = targets[std::size_t(p)];
            const bool existed = QFileInfo::exists(target);
            placeOutput(context, finished[std::size_t(p)], target);
            if (!existed)
                placed << target;
        }
    } catch (...) {
        for (const QString& f : placed)
            QFile::remove(f);
        for (const auto& [target, moved] : aside) {
            QFile::remove(target);
            QFile::rename(moved, target);
        }
        throw;
    }
    for (const auto& [target, moved] : aside)
        QFile::remove(moved);

    ExportOutcome outcome;
    outcome.outputPath = targets.front();
    for (const QString& t : targets)
        outcome.outputFiles << t;
    outcome.chapters = exported;
    outcome.strategy = kind();
    outcome.timings = timings();
    Log::write(QStringLiteral("[Split] ========== STRATEGY COMPLETED ========== (%1 ms)").arg(wall.elapsed()));
    progressCoalescer_.reportOverall(ExportPhase::complete, 1.0);
    return outcome;
}

} // namespace folivox
