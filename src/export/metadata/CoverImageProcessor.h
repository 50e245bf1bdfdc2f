#pragma once

#include "core/settings/ExportSettingsEnums.h"

#include <QByteArray>
#include <QSize>
#include <QString>

#include <optional>

namespace folivox {

// Prepares a cover for a book: decoded with QImage, scaled so its longest
// side is at most the chosen size (never enlarged), and written as JPEG at
// the chosen quality. With the original size at 100% quality, a JPEG or PNG
// keeps its bytes exactly; an image of another format is converted to JPEG.
class CoverImageProcessor {
public:
    struct Result {
        QByteArray bytes;
        // "jpg" or "png": the type mp4art is told and the file extension.
        QString type;
        QSize size;
        // The input's bytes were passed through untouched.
        bool keptOriginal = false;
    };

    // No value when the bytes are not an image Qt can read.
    static std::optional<Result> process(const QByteArray& image, CoverSize size, CoverQuality quality);

    // "jpg" for JPEG bytes, "png" for PNG bytes, empty for anything else.
    static QString imageType(const QByteArray& bytes);
};

} // namespace folivox
