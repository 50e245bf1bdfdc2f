#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <optional>
#include <vector>

namespace folivox {

// The chapters of a book on one clock: seconds from the start of the first
// track. A chapter is stored as its first track and an offset into it; this
// turns that into book time and back, so that a chapter's start or length
// can be edited as the user sees it and the chapters rebuilt over the tracks.
class ChapterTimeline {
public:
    explicit ChapterTimeline(const std::vector<Track>& tracks);

    double totalDuration() const { return total_; }
    // Where each track starts on the book's clock.
    const std::vector<double>& trackStarts() const { return starts_; }
    // The index of the track with this url (the first one), or none.
    std::optional<size_t> trackIndex(const Track& track) const;
    // The track that holds this moment (the last track for the very end).
    size_t trackAt(double bookSeconds) const;

    // A chapter's start on the book's clock (its first track's start plus
    // its offset); 0 for a chapter whose track is not in the book.
    double start(const Bookmark& chapter) const;

    // The chapter with the same id, title and images, moved to cover
    // [start, end): the tracks it crosses, the offset into the first.
    Bookmark spanning(const Bookmark& chapter, double start, double end) const;

    // The chapters with the start of chapter `row` moved to `newStart`: the
    // chapter before it ends there. No value when the move would leave
    // either chapter without length (or for the first chapter, which
    // always starts at the beginning).
    std::optional<std::vector<Bookmark>> movingStart(const std::vector<Bookmark>& chapters, size_t row,
                                                     double newStart) const;
    // The chapters with chapter `row` lasting `newDuration`: the next
    // chapter starts at its new end. The last chapter runs to the end of
    // the audio and cannot be lengthened or shortened on its own.
    std::optional<std::vector<Bookmark>> settingDuration(const std::vector<Bookmark>& chapters, size_t row,
                                                         double newDuration) const;

    // The smallest length a chapter may be given by an edit.
    static constexpr double kMinimumLength = 0.5;

private:
    std::vector<Track> tracks_;
    std::vector<double> starts_;
    double total_ = 0;
};

} // namespace folivox
