#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace folivox {

// A list for ffmpeg's concat demuxer. UTF-8, one entry per file:
//   file '<path>'
// with every single quote of the path written '\'' (close the quote, an
// escaped quote, open again). An entry that starts inside its file is
// followed by "inpoint <seconds>" on its own line.
//
// An entry may also carry "duration <seconds>": where the next file begins on
// the joined timeline. Encoded AAC pieces hold one priming frame before their
// first sample and padding after the last; giving each piece its full length
// of frames lets the pieces tile exactly, with no overlap for the muxer to
// "correct", so that chapter marks computed from the same lengths stay exact.
class ConcatList {
public:
    struct Entry {
        QString path;
        std::optional<double> inpoint;
        std::optional<double> duration;
    };

    void add(const QString& path, std::optional<double> inpoint = std::nullopt,
             std::optional<double> duration = std::nullopt);
    void add(const Entry& entry) { entries_.append(entry); }

    const QList<Entry>& entries() const { return entries_; }
    qsizetype size() const { return entries_.size(); }
    bool isEmpty() const { return entries_.isEmpty(); }

    // The list as the demuxer reads it.
    QString text() const;
    // Writes text() to the file atomically. Throws GenericError naming the file.
    void write(const QString& path) const;

    // The quoted form of one path: 'it'\''s.m4a' for it's.m4a.
    static QString quote(const QString& path);
    // Seconds as the list writes them: "%.6f".
    static QString seconds(double value);

    // Reads a list back (entries, inpoints and durations); for tests and logs.
    static ConcatList parse(const QString& text);

private:
    QList<Entry> entries_;
};

} // namespace folivox
