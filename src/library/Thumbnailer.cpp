#include "library/Thumbnailer.h"

#include <QBuffer>
#include <QImage>

namespace folivox {

QByteArray Thumbnailer::make(const QByteArray& image)
{
    QImage picture = QImage::fromData(image);
    if (picture.isNull())
        return {};
    if (picture.width() > kMaxSide || picture.height() > kMaxSide)
        picture = picture.scaled(kMaxSide, kMaxSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    if (picture.hasAlphaChannel())
        picture = picture.convertToFormat(QImage::Format_RGB32);
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    if (!picture.save(&buffer, "JPEG", 85))
        return {};
    return jpeg;
}

} // namespace folivox
