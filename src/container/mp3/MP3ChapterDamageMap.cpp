#include "container/mp3/MP3ChapterDamageMap.h"

#include <algorithm>

namespace folivox {

double MP3ChapterDamageMap::originalTime(const MP3IntegrityReport& report, std::size_t index)
{
    double before = 0.0;
    for (std::size_t i = 0; i < index && i < report.holes.size(); ++i)
        before += report.holes[i].missingSeconds;
    return report.holes.at(index).startTime + before;
}

std::vector<ChapterDamageHole> MP3ChapterDamageMap::holesOfChapter(const Bookmark& chapter,
                                                                   const ReportLookup& reports)
{
    std::vector<ChapterDamageHole> out;
    double chapterElapsed = 0.0;
    double remaining = std::max(0.0, chapter.duration);
    for (std::size_t t = 0; t < chapter.tracks.size() && remaining > 0; ++t) {
        const Track& track = chapter.tracks[t];
        const double from = t == 0 ? std::max(0.0, chapter.startOffset) : 0.0;
        // The last file of a chapter may end early; a file of unknown length
        // gives the chapter whatever is left.
        const double available = track.duration > from ? track.duration - from : (track.duration > 0 ? 0.0 : remaining);
        const double take = std::min(remaining, available);
        const double to = from + take;
        if (const auto report = reports ? reports(track.url) : std::nullopt) {
            for (std::size_t i = 0; i < report->holes.size(); ++i) {
                const double at = originalTime(*report, i);
                if (at < from || at >= to)
                    continue;
                out.push_back({track.url, report->holes[i].startTime, chapterElapsed + (at - from),
                               report->holes[i].missingSeconds});
            }
        }
        chapterElapsed += take;
        remaining -= take;
    }
    return out;
}

} // namespace folivox
