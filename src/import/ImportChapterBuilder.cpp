#include "import/ImportChapterBuilder.h"

#include <algorithm>

namespace folivox {

ImportChapterBuilder::Layout ImportChapterBuilder::build(const std::vector<Track>& tracks)
{
    Layout layout;
    for (const Track& track : tracks) {
        if (track.chapters.empty()) {
            Bookmark b;
            b.title = track.title;
            b.tracks = {track};
            b.startOffset = 0;
            b.duration = track.duration;
            layout.chapters.push_back(std::move(b));
            ++layout.filesWithoutMarks;
            if (track.fromVideo)
                ++layout.videoFiles;
            continue;
        }
        // Marks in time order; the first kept mark of a file starts at its
        // own time, and each chapter runs to the next kept mark or the end.
        std::vector<ChapterMarker> marks = track.chapters;
        std::stable_sort(marks.begin(), marks.end(),
                         [](const ChapterMarker& a, const ChapterMarker& b) { return a.time < b.time; });
        std::vector<const ChapterMarker*> kept;
        for (const ChapterMarker& m : marks) {
            if (!kept.empty() && m.time - kept.back()->time < kCollapseThreshold) {
                ++layout.collapsedMarks;
                continue;
            }
            kept.push_back(&m);
        }
        for (size_t i = 0; i < kept.size(); ++i) {
            // The first chapter takes in any lead-in before the first mark,
            // so the whole file is covered.
            const double start = i == 0 ? 0.0 : std::clamp(kept[i]->time, 0.0, track.duration);
            const double end = i + 1 < kept.size() ? std::clamp(kept[i + 1]->time, start, track.duration)
                                                   : track.duration;
            Bookmark b;
            b.title = kept[i]->title;
            b.tracks = {track};
            b.startOffset = start;
            b.duration = std::max(0.0, end - start);
            b.artworkData = kept[i]->artworkData;
            layout.chapters.push_back(std::move(b));
        }
    }
    return layout;
}

} // namespace folivox
