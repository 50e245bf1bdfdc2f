#pragma once

#include "core/settings/ExportSettings.h"

#include <QByteArray>
#include <QSize>
#include <QString>

#include <optional>
#include <vector>

namespace folivox {

// The cover choices of an export. Sizes are the longest side in pixels; every
// cover is written as JPEG. The resize choices (1000 px, 600 px) are hidden
// for an image whose longest side is below 600 px, and a cover is never made
// larger than it is.
class CoverOptions {
public:
    static constexpr int resizeChoicesMinimumSide = 600;

    // The sizes offered for an image of this size (all of them for an
    // unknown, empty size).
    static std::vector<CoverSize> availableSizes(const QSize& imageSize);
    // A size that is not offered for this image falls back to original.
    static CoverSize effectiveSize(CoverSize requested, const QSize& imageSize);

    // 1000 or 600; no value for original.
    static std::optional<int> longestSide(CoverSize size);
    // The size the image is written at: scaled down, keeping its shape, so its
    // longest side is at most the choice's; never enlarged.
    static QSize targetSize(CoverSize size, const QSize& imageSize);
    // 100 for original, then 90, 80, 70, 60.
    static int jpegQuality(CoverQuality quality);

    // "Original (100%)", "1000px (100%)", "600px, 80%".
    static QString label(CoverSize size, CoverQuality quality);

    // The cover as it goes into the book: decoded, scaled to targetSize and
    // written as JPEG at jpegQuality; a JPEG or PNG kept at its own size and
    // original quality is returned byte for byte. No value when the bytes
    // are not an image.
    static std::optional<QByteArray> renderCover(const QByteArray& imageBytes, CoverSize size, CoverQuality quality);
};

} // namespace folivox
