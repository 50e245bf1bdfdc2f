#pragma once

#include "core/book/Track.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace folivox {

// The cover of a book being added: an image in its folder ("cover",
// "folder", "front", "albumart"... by name, else the folder's only image),
// else the picture embedded in its first track. Only images that decode.
class CoverFinder {
public:
    struct Cover {
        QByteArray bytes;
        QUrl source; // the image file, or the track it was embedded in
    };

    static std::optional<Cover> find(const QString& folder, const std::vector<Track>& tracks);
    static std::optional<Cover> inFolder(const QString& folder);
    static std::optional<Cover> embedded(const std::vector<Track>& tracks);
};

} // namespace folivox
