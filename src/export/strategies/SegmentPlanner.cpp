#include "export/strategies/SegmentPlanner.h"

#include "export/strategies/FFmpegEncoderError.h"
#include "platform/Log.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace folivox {

namespace {

QString fileName(const QString& path)
{
    return QFileInfo(path).fileName();
}

// Splits whole files into `groups` runs of roughly equal length, then splits
// again wherever the stream format changes.
std::vector<QList<SegmentPiece>> groupFullTracks(const QList<SegmentPiece>& pieces, int groups)
{
    double total = 0;
    for (const SegmentPiece& p : pieces)
        total += p.length;
    std::vector<QList<SegmentPiece>> byLength;
    QList<SegmentPiece> current;
    double done = 0;
    int made = 0;
    for (qsizetype i = 0; i < pieces.size(); ++i) {
        current.append(pieces[i]);
        done += pieces[i].length;
        const qsizetype left = pieces.size() - i - 1;
        const int groupsLeft = groups - made - 1;
        const bool boundary = total > 0 ? done >= total * (made + 1) / groups - 1e-9 : true;
        if (groupsLeft > 0 && left >= groupsLeft && (boundary || left == groupsLeft)) {
            byLength.push_back(current);
            current.clear();
            ++made;
        }
    }
    if (!current.isEmpty())
        byLength.push_back(current);

    std::vector<QList<SegmentPiece>> result;
    for (const auto& group : byLength) {
        QList<SegmentPiece> run;
        for (const SegmentPiece& p : group) {
            if (!run.isEmpty() && !run.last().facts.sameStreamFormat(p.facts)) {
                result.push_back(run);
                run.clear();
            }
            run.append(p);
        }
        if (!run.isEmpty())
            result.push_back(run);
    }
    return result;
}

} // namespace

SourceFacts SourceFacts::fromProbe(const FormatProbe& probe)
{
    SourceFacts f;
    f.duration = probe.duration;
    if (!probe.codec.isEmpty())
        f.codec = probe.codec;
    if (probe.sampleRate > 0)
        f.sampleRate = probe.sampleRate;
    if (probe.channels > 0)
        f.channels = probe.channels;
    f.bitrate = probe.bitrate;
    return f;
}

QStringList PlannedSegment::sourceFileNames() const
{
    QStringList names;
    for (const SegmentPiece& p : pieces) {
        const QString name = fileName(p.path);
        if (!names.contains(name))
            names << name;
    }
    return names;
}

QString PlannedSegment::kindName(Kind kind)
{
    switch (kind) {
    case Kind::stretch: return QStringLiteral("stretch");
    case Kind::concat: return QStringLiteral("concat");
    case Kind::crossFile: return QStringLiteral("crossFile");
    }
    return {};
}

QHash<QString, SourceFacts> SegmentPlanner::factsFromTracks(const std::vector<Track>& tracks)
{
    QHash<QString, SourceFacts> facts;
    for (const Track& t : tracks) {
        const QString path = t.url.isLocalFile() ? t.url.toLocalFile() : t.url.toString();
        if (facts.contains(path))
            continue;
        SourceFacts f;
        f.duration = t.duration;
        f.codec = t.cachedCodec;
        f.sampleRate = t.cachedSampleRate;
        f.channels = t.cachedChannels;
        f.bitrate = t.cachedBitrate;
        facts.insert(path, f);
    }
    return facts;
}

SegmentPlan SegmentPlanner::plan(const std::vector<ChapterInput>& chapters, const QHash<QString, SourceFacts>& facts,
                                 const Options& options)
{
    SegmentPlan plan;
    const int chapterCount = static_cast<int>(chapters.size());
    QHash<QString, SourceFacts> probed;

    auto factsFor = [&](const QString& path, double plannedLength) {
        if (auto it = facts.constFind(path); it != facts.constEnd())
            return *it;
        if (auto it = probed.constFind(path); it != probed.constEnd())
            return *it;
        std::optional<SourceFacts> f;
        if (options.probe) {
            if (const auto p = options.probe(path))
                f = SourceFacts::fromProbe(*p);
        }
        if (!f) {
            if (plannedLength > 0)
                Log::write(QStringLiteral("[BatchEncoding] FFprobe failed for ") + fileName(path)
                           + QStringLiteral(". Using fallback (duration=") + QString::number(plannedLength, 'f', 3)
                           + u')');
            else
                Log::write(QStringLiteral("[BatchEncoding] FFprobe failed for ") + fileName(path)
                           + QStringLiteral(". Using fallback."));
            f = SourceFacts{};
            f->duration = plannedLength;
        }
        probed.insert(path, *f);
        return *f;
    };

    for (int c = 0; c < chapterCount; ++c) {
        const ChapterInput& chapter = chapters[static_cast<std::size_t>(c)];
        if (chapter.files.isEmpty())
            throw FFmpegEncoderError::noInputFiles(c + 1);

        QList<SegmentPiece> pieces;
        for (qsizetype j = 0; j < chapter.files.size(); ++j) {
            const QUrl& url = chapter.files[j];
            const QString path = url.isLocalFile() ? url.toLocalFile() : url.toString();
            std::optional<MediaTimeRange> range;
            if (chapter.files.size() == 1 && chapter.timeRange)
                range = chapter.timeRange;
            else if (chapter.segmentRanges && j < static_cast<qsizetype>(chapter.segmentRanges->size()))
                range = (*chapter.segmentRanges)[static_cast<std::size_t>(j)];
            SegmentPiece piece;
            piece.path = path;
            piece.facts = factsFor(path, range ? range->duration : 0.0);
            const double fileDuration = piece.facts.duration;
            piece.start = range ? std::max(0.0, range->start) : 0.0;
            piece.length = range && range->duration > 0 ? range->duration : std::max(0.0, fileDuration - piece.start);
            if (chapter.segmentFullTrack && j < static_cast<qsizetype>(chapter.segmentFullTrack->size())) {
                piece.fullTrack = (*chapter.segmentFullTrack)[static_cast<std::size_t>(j)];
            } else if (chapter.files.size() == 1 && chapter.wholeFileCandidate) {
                piece.fullTrack = true;
            } else {
                piece.fullTrack = !range
                    || (piece.start <= kWholeFileTolerance
                        && (fileDuration <= 0 || std::abs(piece.start + piece.length - fileDuration) <= kWholeFileTolerance));
            }
            if (piece.fullTrack) {
                piece.start = 0;
                if (fileDuration > 0)
                    piece.length = fileDuration;
            }
            pieces.append(piece);
        }

        auto addSegment = [&](PlannedSegment::Kind kind, const QList<SegmentPiece>& segmentPieces) {
            PlannedSegment s;
            s.index = static_cast<int>(plan.segments.size());
            s.chapterIndex = c;
            s.chapterTitle = chapter.title;
            s.kind = kind;
            s.pieces = segmentPieces;
            for (const SegmentPiece& p : segmentPieces)
                s.plannedDuration += p.length;
            if (kind == PlannedSegment::Kind::stretch && segmentPieces.first().fullTrack && options.mayCopy)
                s.copy = options.mayCopy(segmentPieces.first());
            plan.totalDuration += s.plannedDuration;
            plan.chapterSegments.back().push_back(s.index);
            plan.segments.push_back(std::move(s));
        };

        plan.chapterSegments.emplace_back();
        if (pieces.size() == 1) {
            addSegment(PlannedSegment::Kind::stretch, pieces);
            continue;
        }
        const bool allFull = std::all_of(pieces.begin(), pieces.end(), [](const SegmentPiece& p) { return p.fullTrack; });
        if (!allFull) {
            addSegment(PlannedSegment::Kind::crossFile, pieces);
            continue;
        }
        const int wanted = std::clamp(static_cast<int>(std::ceil(double(std::max(1, options.parallelJobs))
                                                                 / double(std::max(1, chapterCount)))),
                                      1, static_cast<int>(pieces.size()));
        if (!options.allowGroups) {
            const bool oneFormat = std::all_of(pieces.begin(), pieces.end(), [&](const SegmentPiece& p) {
                return p.facts.sameStreamFormat(pieces.first().facts);
            });
            addSegment(oneFormat ? PlannedSegment::Kind::concat : PlannedSegment::Kind::crossFile, pieces);
            continue;
        }
        const auto groups = groupFullTracks(pieces, wanted);
        Log::write(QStringLiteral("[BatchEncoding] Chapter %1: splitting %2 full tracks into %3 parallel groups")
                       .arg(c + 1)
                       .arg(pieces.size())
                       .arg(groups.size()));
        for (const auto& group : groups) {
            if (group.size() == 1)
                addSegment(PlannedSegment::Kind::stretch, group);
            else
                addSegment(PlannedSegment::Kind::concat, group);
        }
    }
    return plan;
}

} // namespace folivox
