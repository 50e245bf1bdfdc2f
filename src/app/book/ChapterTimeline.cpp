#include "app/book/ChapterTimeline.h"

#include <algorithm>

namespace folivox {

ChapterTimeline::ChapterTimeline(const std::vector<Track>& tracks)
    : tracks_(tracks)
{
    for (const Track& t : tracks_) {
        starts_.push_back(total_);
        total_ += t.duration;
    }
}

std::optional<size_t> ChapterTimeline::trackIndex(const Track& track) const
{
    for (size_t i = 0; i < tracks_.size(); ++i)
        if (tracks_[i].id == track.id)
            return i;
    for (size_t i = 0; i < tracks_.size(); ++i)
        if (tracks_[i].url == track.url)
            return i;
    return std::nullopt;
}

size_t ChapterTimeline::trackAt(double bookSeconds) const
{
    if (tracks_.empty())
        return 0;
    const auto after = std::upper_bound(starts_.begin(), starts_.end(), bookSeconds);
    const size_t index = after == starts_.begin() ? 0 : static_cast<size_t>(after - starts_.begin()) - 1;
    return std::min(index, tracks_.size() - 1);
}

double ChapterTimeline::start(const Bookmark& chapter) const
{
    if (chapter.tracks.empty())
        return 0;
    const auto index = trackIndex(chapter.tracks.front());
    return index ? starts_[*index] + chapter.startOffset : 0;
}

Bookmark ChapterTimeline::spanning(const Bookmark& chapter, double start, double end) const
{
    Bookmark b = chapter;
    b.tracks.clear();
    if (tracks_.empty())
        return b;
    const size_t first = trackAt(start);
    // The end is exclusive: a chapter ending exactly where a track starts
    // does not cross into it.
    size_t last = trackAt(std::max(start, end - 1e-6));
    last = std::max(first, last);
    for (size_t i = first; i <= last; ++i)
        b.tracks.push_back(tracks_[i]);
    b.startOffset = start - starts_[first];
    b.duration = end - start;
    return b;
}

std::optional<std::vector<Bookmark>> ChapterTimeline::movingStart(const std::vector<Bookmark>& chapters, size_t row,
                                                                  double newStart) const
{
    if (row == 0 || row >= chapters.size())
        return std::nullopt;
    const Bookmark& before = chapters[row - 1];
    const Bookmark& chapter = chapters[row];
    const double beforeStart = start(before);
    const double end = start(chapter) + chapter.duration;
    if (newStart < beforeStart + kMinimumLength || newStart > end - kMinimumLength)
        return std::nullopt;
    std::vector<Bookmark> result = chapters;
    result[row - 1] = spanning(before, beforeStart, newStart);
    result[row] = spanning(chapter, newStart, end);
    return result;
}

std::optional<std::vector<Bookmark>> ChapterTimeline::settingDuration(const std::vector<Bookmark>& chapters, size_t row,
                                                                      double newDuration) const
{
    if (row + 1 >= chapters.size())
        return std::nullopt;
    return movingStart(chapters, row + 1, start(chapters[row]) + newDuration);
}

} // namespace folivox
