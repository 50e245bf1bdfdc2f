#include "sidecars/apply/SidecarChapterFitter.h"

#include "sidecars/apply/SidecarValidationService.h"

#include <algorithm>
#include <cmath>

namespace folivox {

FittedSidecarChapters SidecarChapterFitter::fit(const SidecarParseResult& parsed, std::int64_t totalDurationMs)
{
    FittedSidecarChapters out;
    out.format = parsed.format;
    out.totalDurationMs = std::max<std::int64_t>(0, totalDurationMs);
    out.warnings = parsed.warnings;
    const SidecarValidationResult validation =
        SidecarValidationService().validate(parsed.format, parsed.chapters, out.totalDurationMs);
    out.warnings += validation.warnings;
    out.isValid = validation.isValid && !validation.chapters.isEmpty();
    if (!out.isValid)
        return out;

    // Validation leaves the rows sorted with distinct starts, the first at 0
    // and none at or past the end: every chapter gets a length above 0.
    QList<NormalizedChapter> rows = validation.chapters;
    for (qsizetype i = 0; i < rows.size(); ++i) {
        std::optional<std::int64_t> end;
        if (i + 1 < rows.size())
            end = rows[i + 1].startMs;
        else if (out.totalDurationMs > 0)
            end = out.totalDurationMs;
        else if (rows[i].endMs && *rows[i].endMs > rows[i].startMs)
            end = rows[i].endMs;
        if (end != rows[i].endMs)
            rows[i] = rows[i].rebuilt(rows[i].startMs, end);
    }
    out.chapters = rows;
    return out;
}

std::int64_t SidecarChapterFitter::totalDurationMs(const std::vector<Track>& tracks)
{
    double total = 0;
    for (const Track& t : tracks)
        total += std::max(0.0, t.duration);
    return static_cast<std::int64_t>(std::llround(total * 1000.0));
}

std::vector<Bookmark> SidecarChapterFitter::bookmarks(const std::vector<Track>& tracks,
                                                      const QList<NormalizedChapter>& chapters)
{
    // Track boundaries are sums of doubles, chapter starts whole milliseconds:
    // a start this close to a boundary is on it.
    constexpr double eps = 1e-6;
    std::vector<double> trackStarts;
    double total = 0;
    for (const Track& t : tracks) {
        trackStarts.push_back(total);
        total += std::max(0.0, t.duration);
    }
    struct Mark {
        double start;
        QString title;
    };
    std::vector<Mark> marks;
    for (const NormalizedChapter& c : chapters)
        marks.push_back({static_cast<double>(c.startMs) / 1000.0, c.title});
    std::stable_sort(marks.begin(), marks.end(), [](const Mark& a, const Mark& b) { return a.start < b.start; });
    std::vector<Mark> kept;
    for (const Mark& m : marks) {
        if (m.start < 0 || m.start >= total - eps || (!kept.empty() && m.start <= kept.back().start + eps))
            continue;
        kept.push_back(m);
    }
    if (!kept.empty())
        kept.front().start = 0;  // the book starts with its first chapter

    std::vector<Bookmark> out;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const double start = kept[i].start;
        // The last chapter ends where the audio does, whatever rounding the
        // milliseconds went through.
        const double end = i + 1 < kept.size() ? kept[i + 1].start : total;
        Bookmark b;
        b.title = kept[i].title;
        b.isSidecarChapter = true;
        b.duration = end - start;
        for (std::size_t k = 0; k < tracks.size(); ++k) {
            const double trackEnd = trackStarts[k] + std::max(0.0, tracks[k].duration);
            if (b.tracks.empty()) {
                // A chapter begins in the track whose stretch holds its start.
                if (trackEnd <= start + eps)
                    continue;
                b.startOffset = std::max(0.0, start - trackStarts[k]);
            } else if (trackStarts[k] >= end - eps) {
                break;
            }
            b.tracks.push_back(tracks[k]);
        }
        if (!b.tracks.empty())
            out.push_back(std::move(b));
    }
    return out;
}

QStringList SidecarChapterFitter::notices(const FittedSidecarChapters& fitted, const QString& fileName)
{
    QStringList lines;
    for (const SidecarWarning& w : fitted.warnings) {
        if (w.severity == SidecarWarningSeverity::info)
            continue;
        if (w.lineNumber)
            lines << QStringLiteral("%1, line %2: %3").arg(fileName).arg(*w.lineNumber).arg(w.message);
        else
            lines << QStringLiteral("%1: %2").arg(fileName, w.message);
    }
    if (!lines.isEmpty() && fitted.isValid)
        lines << QStringLiteral("%1: the rows named above were left out or changed; correct them in the file "
                                "and build again to apply them as written")
                     .arg(fileName);
    return lines;
}

} // namespace folivox
