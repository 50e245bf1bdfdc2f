#pragma once

#include "app/book/ChapterTimeline.h"
#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <optional>
#include <vector>

namespace folivox {

// Where the player is, on the book's clock: which track and how far into it
// a moment of the book lies, which chapter holds it, and where the next and
// previous chapters start.
class PlaybackTimeline {
public:
    struct Position {
        size_t track = 0;
        double offset = 0; // seconds into that track
    };

    PlaybackTimeline() : timeline_(std::vector<Track>{}) {}
    PlaybackTimeline(std::vector<Track> tracks, std::vector<Bookmark> chapters);

    bool isEmpty() const { return tracks_.empty(); }
    double totalDuration() const { return timeline_.totalDuration(); }
    const std::vector<Track>& tracks() const { return tracks_; }
    size_t chapterCount() const { return chapterStarts_.size(); }

    Position locate(double bookSeconds) const;
    double bookTime(size_t track, double offset) const;

    // The chapter playing at this moment (the last one that starts at or
    // before it); none before the first chapter or in an empty book.
    std::optional<size_t> chapterAt(double bookSeconds) const;
    double chapterStart(size_t chapter) const;

    // The chapter after the one at this moment; none at the last.
    std::optional<size_t> nextChapter(double bookSeconds) const;
    // Back to the start of this chapter when more than a moment into it,
    // else the chapter before.
    std::optional<size_t> previousChapter(double bookSeconds) const;

    // How far into a chapter "previous" still means its own start.
    static constexpr double kRestartWindow = 2.0;

private:
    std::vector<Track> tracks_;
    ChapterTimeline timeline_;
    std::vector<double> chapterStarts_;
};

} // namespace folivox
