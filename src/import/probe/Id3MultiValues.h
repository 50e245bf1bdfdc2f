#pragma once

#include <QMap>
#include <QString>

namespace folivox {

// The text fields of an MP3's ID3v2 tag that hold more than one value (an
// ID3v2.4 frame lists them separated by NUL), read with TagLib: libavformat
// keeps only the first. Keys are in libavformat's lower-case naming
// ("artist", "album_artist", "genre", a TXXX frame by its description), and
// the values are joined with ';' as libavformat joins repeated Vorbis
// comments.
class Id3MultiValues {
public:
    // Empty for a file with no ID3v2 tag, or none with several values.
    static QMap<QString, QString> of(const QString& path);
};

} // namespace folivox
