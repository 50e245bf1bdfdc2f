#pragma once

#include <QDateTime>
#include <QString>

namespace folivox {

// Gives a freshly written MP4 its creation date: the creation and
// modification times of the movie header (`mvhd`) and of each track and
// media header (`tkhd`, `mdhd`) that still hold zero (1 January 1904, what a
// muxer writes when it is told no date) are set to the given moment. Players
// and file browsers show the movie header's time as the file's creation date.
// Edits the fixed-size fields in place; a time already set is left alone.
class MP4CreationTimeStamper {
public:
    // The number of headers stamped. Throws MP4FileError on a read or write
    // failure; a file without a readable `moov` is left as it is.
    static int stamp(const QString& path, const QDateTime& when);

    // Seconds from 1904-01-01T00:00:00Z, the epoch of MP4 times.
    static quint64 mp4Seconds(const QDateTime& when);
};

} // namespace folivox
