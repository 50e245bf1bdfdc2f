#include "export/metadata/CoverImageProcessor.h"

#include "export/settings/CoverOptions.h"

#include <QBuffer>
#include <QImageReader>

namespace folivox {

QString CoverImageProcessor::imageType(const QByteArray& bytes)
{
    if (bytes.startsWith(QByteArrayLiteral("\xFF\xD8\xFF")))
        return QStringLiteral("jpg");
    if (bytes.startsWith(QByteArrayLiteral("\x89PNG\r\n\x1A\n")))
        return QStringLiteral("png");
    return {};
}

std::optional<CoverImageProcessor::Result> CoverImageProcessor::process(const QByteArray& image, CoverSize size,
                                                                        CoverQuality quality)
{
    QByteArray copy = image;
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize original = reader.size();
    if (!reader.canRead() || !original.isValid())
        return std::nullopt;

    const CoverSize effective = CoverOptions::effectiveSize(size, original);
    const QString type = imageType(image);
    if (effective == CoverSize::original && quality == CoverQuality::original && !type.isEmpty()) {
        // Make sure the bytes decode before they go into a book untouched.
        if (reader.read().isNull())
            return std::nullopt;
        return Result{image, type, original, true};
    }

    const auto jpeg = CoverOptions::renderCover(image, effective, quality);
    if (!jpeg)
        return std::nullopt;
    return Result{*jpeg, QStringLiteral("jpg"), CoverOptions::targetSize(effective, original), false};
}

} // namespace folivox
