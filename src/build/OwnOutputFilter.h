#pragma once

#include <QList>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace folivox {

// Keeps a book's own earlier outputs out of its inputs, so that a folder can
// be built into itself again: the file (or per-chapter folder) the build is
// about to write, and audiobooks Folivox made that lie in a folder of other
// audio.
class OwnOutputFilter {
public:
    struct Filtered {
        // The inputs to import: unchanged when nothing was left out, else
        // every audio file of the folders with the left-out ones removed.
        QList<QUrl> inputs;
        QStringList leftOut;
    };

    // output: the planned output when already known (a file, or a folder for
    // per-chapter formats).
    static Filtered apply(const QList<QUrl>& inputs, const std::optional<QString>& output);

    // True when the file is an MP4 whose encoding tool tag says Folivox.
    static bool madeByFolivox(const QString& path);
};

} // namespace folivox
