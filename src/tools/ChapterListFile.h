#pragma once

#include <QList>
#include <QString>

#include <cstdint>

namespace folivox {

// One chapter as the mp4 tools handle it: a start in milliseconds and a title.
struct ChapterEntry {
    std::int64_t startMs = 0;
    QString title;

    bool operator==(const ChapterEntry&) const = default;
};

// The chapter list that mp4chaps imports and exports: a text file
// "<file without extension>.chapters.txt" beside the MP4, one chapter a line,
// "HH:MM:SS.mmm Title" (the hours may have more digits; the fraction may have
// 1 to 3 digits or be missing). Lines starting with "#" and blank lines are
// skipped. UTF-8, with or without a byte order mark.
class ChapterListFile {
public:
    // The chapter list that belongs to an MP4 file: book.m4b -> book.chapters.txt.
    static QString pathFor(const QString& mp4Path);

    // Parses the text of a chapter list. Throws ToolError(chapterFileInvalid)
    // naming the line of the first entry it cannot read.
    static QList<ChapterEntry> parse(const QByteArray& text, const QString& fileName);
    // Reads and parses a file. Throws ToolError(chapterFileUnreadable) when
    // it cannot be read.
    static QList<ChapterEntry> read(const QString& path);

    // The text of a list, one "HH:MM:SS.mmm Title" line per chapter.
    static QByteArray format(const QList<ChapterEntry>& chapters);
    static QString formatTime(std::int64_t ms);

    // Orders chapters by start, keeps the first of any with the same start,
    // drops those at or after durationMs and moves the first to 0, so that the
    // list covers the whole audio.
    static QList<ChapterEntry> normalized(QList<ChapterEntry> chapters, std::int64_t durationMs);
};

} // namespace folivox
