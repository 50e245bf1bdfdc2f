#pragma once

#include <QString>

#include <optional>

namespace folivox {

// How long an MP3 plays, from its encoder's information frame alone: the
// frames the Xing/Info header counts, less the encoder delay and padding its
// LAME extension records (which decoders, and the build's decode, drop). The
// demuxer's length counts every frame whole, about 20 ms too long, which a
// chapter file over several files would carry into every later mark.
class Mp3PlayedLength {
public:
    // Nothing when the file has no such header, or one without a frame count
    // or encoder delay. Reads only the head of the file.
    static std::optional<double> fromLameHeader(const QString& path);

    // Bytes taken by an ID3v2 tag at the start of the file (0 when none),
    // as its header declares them.
    static qint64 id3v2Size(const QString& path);
};

} // namespace folivox
