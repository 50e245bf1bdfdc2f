#include "export/decision/ExportPlanBuilder.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace folivox {

namespace {

bool positive(double seconds)
{
    return std::isfinite(seconds) && seconds > 0.0;
}

QString fileName(const QUrl& url)
{
    return QFileInfo(url.toLocalFile()).fileName();
}

} // namespace

std::optional<double> ExportPlanBuilder::knownDuration(const Track& track, const std::vector<Track>& tracks)
{
    if (positive(track.duration))
        return track.duration;
    for (const Track& t : tracks) {
        if (t.id == track.id && positive(t.duration))
            return t.duration;
    }
    for (const Track& t : tracks) {
        if (t.url == track.url && positive(t.duration))
            return t.duration;
    }
    return std::nullopt;
}

std::vector<ExportPlanBuilder::Piece> ExportPlanBuilder::pieces(const Bookmark& bookmark,
                                                                const std::vector<Track>& tracks)
{
    std::vector<Piece> out;
    double remaining = bookmark.duration;
    if (!std::isfinite(remaining) || remaining <= kStartTolerance)
        return out;
    double carry = std::isfinite(bookmark.startOffset) ? std::max(0.0, bookmark.startOffset) : 0.0;

    for (std::size_t i = 0; i < bookmark.tracks.size() && remaining > kStartTolerance; ++i) {
        const Track& track = bookmark.tracks[i];
        const std::optional<double> fileDuration = knownDuration(track, tracks);
        const double start = carry;
        carry = 0.0;
        double take = remaining;
        if (fileDuration) {
            const double available = *fileDuration - start;
            if (available <= kStartTolerance) {
                // The chapter starts beyond this file: the rest of the offset
                // applies to the next one.
                carry = std::max(0.0, start - *fileDuration);
                continue;
            }
            take = std::min(remaining, available);
        }
        out.push_back(Piece{track.url, MediaTimeRange{start, take}, fileDuration, false});
        remaining -= take;
        if (!fileDuration) {
            if (i + 1 < bookmark.tracks.size()) {
                Log::write(QStringLiteral("[Export] Plan: length of \"%1\" is unknown; chapter \"%2\" takes the "
                                          "rest of its time from it and leaves out %3 later file(s)")
                               .arg(fileName(track.url), bookmark.title)
                               .arg(bookmark.tracks.size() - i - 1));
            }
            break;
        }
    }

    const double endTolerance = out.size() > 1 ? kCrossFileTolerance : kEndTolerance;
    for (Piece& piece : out) {
        piece.wholeFile = piece.fileDuration && piece.range.start <= kStartTolerance
            && piece.range.end() >= *piece.fileDuration - endTolerance;
    }
    return out;
}

std::vector<ExportPlanBuilder::Piece> ExportPlanBuilder::pieces(const ChapterInput& chapter)
{
    std::vector<Piece> out;
    if (chapter.files.size() == 1 && chapter.timeRange) {
        out.push_back(Piece{chapter.files.front(), *chapter.timeRange, std::nullopt, chapter.wholeFileCandidate});
        return out;
    }
    for (qsizetype i = 0; i < chapter.files.size(); ++i) {
        const auto index = static_cast<std::size_t>(i);
        Piece piece;
        piece.url = chapter.files.at(i);
        if (chapter.segmentRanges && index < chapter.segmentRanges->size())
            piece.range = (*chapter.segmentRanges)[index];
        if (chapter.segmentFullTrack && index < chapter.segmentFullTrack->size())
            piece.wholeFile = (*chapter.segmentFullTrack)[index];
        out.push_back(piece);
    }
    return out;
}

ExportPlanBuilder::Plan ExportPlanBuilder::build(const std::vector<Bookmark>& bookmarks,
                                                 const std::vector<Track>& tracks)
{
    Plan plan;
    for (std::size_t index = 0; index < bookmarks.size(); ++index) {
        const Bookmark& bookmark = bookmarks[index];
        const std::vector<Piece> taken = pieces(bookmark, tracks);
        if (taken.empty()) {
            Log::write(QStringLiteral("[Export] Plan: chapter %1 (\"%2\") takes no audio (tracks=%3 startOffset=%4 "
                                      "duration=%5) — left out")
                           .arg(index + 1)
                           .arg(bookmark.title)
                           .arg(bookmark.tracks.size())
                           .arg(bookmark.startOffset, 0, 'f', 3)
                           .arg(bookmark.duration, 0, 'f', 3));
            continue;
        }

        ChapterInput chapter;
        chapter.title = bookmark.title;
        for (const Piece& piece : taken)
            chapter.files.append(piece.url);
        if (taken.size() == 1) {
            chapter.timeRange = taken.front().range;
            chapter.wholeFileCandidate = taken.front().wholeFile;
        } else {
            std::vector<MediaTimeRange> ranges;
            std::vector<bool> full;
            for (const Piece& piece : taken) {
                ranges.push_back(piece.range);
                full.push_back(piece.wholeFile);
            }
            chapter.segmentRanges = std::move(ranges);
            chapter.segmentFullTrack = std::move(full);
        }
        for (const QUrl& url : std::as_const(chapter.files)) {
            if (!plan.uniqueURLs.contains(url))
                plan.uniqueURLs.append(url);
        }
        plan.chapters.push_back(std::move(chapter));
        plan.chapterToBookmarkMap.push_back(static_cast<int>(index));
    }
    Log::write(QStringLiteral("[Export] Plan: chapters=%1 bookmarks=%2 uniqueURLs=%3")
                   .arg(plan.chapters.size())
                   .arg(bookmarks.size())
                   .arg(plan.uniqueURLs.size()));
    return plan;
}

QJsonObject ExportPlanBuilder::Plan::toJson() const
{
    return JsonWriter()
        .set("chapters", chapters)
        .set("uniqueURLs", uniqueURLs)
        .set("chapterToBookmarkMap", chapterToBookmarkMap)
        .object();
}

ExportPlanBuilder::Plan ExportPlanBuilder::Plan::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    Plan plan;
    plan.chapters = r.list<ChapterInput>("chapters");
    plan.uniqueURLs = r.urlList("uniqueURLs");
    if (!r.contains("chapterToBookmarkMap"))
        r.integer("chapterToBookmarkMap"); // throws keyNotFound for the missing list
    const QList<int> map = JsonReader::listOf<int>(r.object().value(QLatin1StringView("chapterToBookmarkMap")),
                                                   QStringLiteral("chapterToBookmarkMap"), &JsonReader::asInt);
    plan.chapterToBookmarkMap.assign(map.begin(), map.end());
    return plan;
}

} // namespace folivox
