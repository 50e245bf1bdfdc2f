#pragma once

#include <QByteArray>
#include <QString>

namespace folivox {

// The picture a source file carries, read without decoding the audio.
class SourceCover {
public:
    // The file's embedded picture, or nothing. An MP4 file's items are read
    // from its moov directly: libav would first index every sample of a long
    // book (70 ms for a 500 MB one) to hand back the same picture.
    static QByteArray embedded(const QString& path);
};

} // namespace folivox
