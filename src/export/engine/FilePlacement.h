#pragma once

#include <QString>

#include <optional>

namespace folivox {

// Where one file stands in a book of several files, for its tags: a
// per-chapter file is a track with its chapter's title, a split part is a
// disc with its part's title. The album stays the book's title throughout,
// so that players show one book.
struct FilePlacement {
    // The file's own title; the book's title when empty.
    std::optional<QString> title;
    int trackNumber = 0; // 0 leaves it out
    int trackCount = 0;
    int discNumber = 0; // 0 leaves it out
    int discCount = 0;

    static FilePlacement track(QString title, int number, int count) { return {std::move(title), number, count, 0, 0}; }
    static FilePlacement disc(QString title, int number, int count) { return {std::move(title), 0, 0, number, count}; }
};

} // namespace folivox
