#include "export/settings/CoverOptions.h"

#include <QBuffer>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace folivox {

std::vector<CoverSize> CoverOptions::availableSizes(const QSize& imageSize)
{
    if (imageSize.isValid() && !imageSize.isEmpty()
        && std::max(imageSize.width(), imageSize.height()) < resizeChoicesMinimumSide)
        return {CoverSize::original};
    return {CoverSize::original, CoverSize::px1000, CoverSize::px600};
}

CoverSize CoverOptions::effectiveSize(CoverSize requested, const QSize& imageSize)
{
    const auto sizes = availableSizes(imageSize);
    return std::find(sizes.begin(), sizes.end(), requested) != sizes.end() ? requested : CoverSize::original;
}

std::optional<int> CoverOptions::longestSide(CoverSize size)
{
    switch (size) {
    case CoverSize::original:
        return std::nullopt;
    case CoverSize::px1000:
        return 1000;
    case CoverSize::px600:
        return 600;
    }
    return std::nullopt;
}

QSize CoverOptions::targetSize(CoverSize size, const QSize& imageSize)
{
    const std::optional<int> side = longestSide(size);
    if (!side || imageSize.isEmpty())
        return imageSize;
    const int longest = std::max(imageSize.width(), imageSize.height());
    if (longest <= *side)
        return imageSize;
    // Rounded rather than truncated: 1200x800 at 1000 is 1000x667.
    const auto scale = [&](int v) {
        return std::max(1, static_cast<int>(std::lround(static_cast<double>(v) * *side / longest)));
    };
    return QSize(scale(imageSize.width()), scale(imageSize.height()));
}

int CoverOptions::jpegQuality(CoverQuality quality)
{
    switch (quality) {
    case CoverQuality::original:
        return 100;
    case CoverQuality::q90:
        return 90;
    case CoverQuality::q80:
        return 80;
    case CoverQuality::q70:
        return 70;
    case CoverQuality::q60:
        return 60;
    }
    return 100;
}

QString CoverOptions::label(CoverSize size, CoverQuality quality)
{
    if (quality == CoverQuality::original)
        return folivox::label(size) + folivox::label(quality);
    return folivox::label(size) + QStringLiteral(", ") + folivox::label(quality);
}

std::optional<QByteArray> CoverOptions::renderCover(const QByteArray& imageBytes, CoverSize size, CoverQuality quality)
{
    QImage image;
    if (!image.loadFromData(imageBytes) || image.isNull())
        return std::nullopt;
    const QSize target = targetSize(effectiveSize(size, image.size()), image.size());
    // A JPEG or PNG asked for at its own size and quality goes in as it is:
    // a second encode only adds bytes and loses detail (and a PNG's alpha).
    const bool jpegOrPng = imageBytes.startsWith(QByteArrayLiteral("\xFF\xD8\xFF"))
                           || imageBytes.startsWith(QByteArrayLiteral("\x89PNG\r\n\x1A\n"));
    if (target == image.size() && quality == CoverQuality::original && jpegOrPng)
        return imageBytes;
    if (target != image.size())
        image = image.scaled(target, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    // JPEG has no alpha: flatten onto white rather than black.
    if (image.hasAlphaChannel()) {
        QImage flat(image.size(), QImage::Format_RGB32);
        flat.fill(Qt::white);
        QPainter painter(&flat);
        painter.drawImage(0, 0, image);
        painter.end();
        image = flat;
    }
    QByteArray out;
    QBuffer buffer(&out);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "JPEG", jpegQuality(quality)))
        return std::nullopt;
    return out;
}

} // namespace folivox
