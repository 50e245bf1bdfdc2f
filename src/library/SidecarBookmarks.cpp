#include "library/SidecarBookmarks.h"

#include <algorithm>

namespace folivox {

std::vector<Bookmark> SidecarBookmarks::fromChapters(const std::vector<Track>& tracks, const QList<NormalizedChapter>& chapters)
{
    std::vector<double> starts;
    double total = 0;
    for (const Track& t : tracks) {
        starts.push_back(total);
        total += std::max(0.0, t.duration);
    }
    constexpr double eps = 0.001;
    std::vector<Bookmark> out;
    for (qsizetype i = 0; i < chapters.size(); ++i) {
        const double start = std::max(0.0, double(chapters[i].startMs) / 1000.0);
        double end = i + 1 < chapters.size() ? double(chapters[i + 1].startMs) / 1000.0 : total;
        if (chapters[i].endMs)
            end = std::min(end, double(*chapters[i].endMs) / 1000.0);
        end = std::min(end, total);
        if (end - start <= eps || start >= total)
            continue;
        Bookmark b;
        b.title = chapters[i].title;
        b.isSidecarChapter = true;
        b.duration = end - start;
        for (std::size_t k = 0; k < tracks.size(); ++k) {
            const double trackEnd = starts[k] + tracks[k].duration;
            if (b.tracks.empty()) {
                if (trackEnd - eps <= start)
                    continue;
                b.startOffset = start - starts[k];
            } else if (starts[k] >= end - eps) {
                break;
            }
            b.tracks.push_back(tracks[k]);
        }
        if (!b.tracks.empty())
            out.push_back(std::move(b));
    }
    return out;
}

} // namespace folivox
