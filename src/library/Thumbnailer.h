#pragma once

#include <QByteArray>

namespace folivox {

// The library's thumbnail of a cover: at most 512 pixels on its longer side,
// as a JPEG. Empty when the image can't be decoded.
class Thumbnailer {
public:
    static constexpr int kMaxSide = 512;
    static QByteArray make(const QByteArray& image);
};

} // namespace folivox
