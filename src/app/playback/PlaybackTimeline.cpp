#include "app/playback/PlaybackTimeline.h"

#include <algorithm>

namespace folivox {

PlaybackTimeline::PlaybackTimeline(std::vector<Track> tracks, std::vector<Bookmark> chapters)
    : tracks_(std::move(tracks))
    , timeline_(tracks_)
{
    for (const Bookmark& b : chapters)
        chapterStarts_.push_back(timeline_.start(b));
}

PlaybackTimeline::Position PlaybackTimeline::locate(double bookSeconds) const
{
    if (tracks_.empty())
        return {};
    const double clamped = std::clamp(bookSeconds, 0.0, totalDuration());
    const size_t track = timeline_.trackAt(clamped);
    return {track, clamped - timeline_.trackStarts()[track]};
}

double PlaybackTimeline::bookTime(size_t track, double offset) const
{
    if (track >= tracks_.size())
        return totalDuration();
    return timeline_.trackStarts()[track] + offset;
}

std::optional<size_t> PlaybackTimeline::chapterAt(double bookSeconds) const
{
    std::optional<size_t> found;
    // A little tolerance so that a seek to a chapter's start lands in it.
    for (size_t i = 0; i < chapterStarts_.size(); ++i)
        if (chapterStarts_[i] <= bookSeconds + 1e-3)
            found = i;
    return found;
}

double PlaybackTimeline::chapterStart(size_t chapter) const
{
    return chapter < chapterStarts_.size() ? chapterStarts_[chapter] : 0.0;
}

std::optional<size_t> PlaybackTimeline::nextChapter(double bookSeconds) const
{
    const auto current = chapterAt(bookSeconds);
    const size_t next = current ? *current + 1 : 0;
    if (next >= chapterStarts_.size())
        return std::nullopt;
    return next;
}

std::optional<size_t> PlaybackTimeline::previousChapter(double bookSeconds) const
{
    const auto current = chapterAt(bookSeconds);
    if (!current)
        return chapterStarts_.empty() ? std::nullopt : std::optional<size_t>(0);
    if (bookSeconds - chapterStarts_[*current] > kRestartWindow || *current == 0)
        return *current;
    return *current - 1;
}

} // namespace folivox
