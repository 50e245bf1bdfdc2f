#pragma once

#include "core/book/Track.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>
#include <vector>

namespace folivox {

// One chapter of the book as the user sees and edits it. A fresh value gets
// a new id. All keys but the two artwork fields are required on decode.
struct Bookmark {
    QUuid id = QUuid::createUuid();
    QString title;
    std::vector<Track> tracks; // the files this chapter covers, in playing order
    double startOffset = 0.0;  // where the chapter begins in its first track
    double duration = 0.0;
    bool isSidecarChapter = false;
    std::optional<QByteArray> artworkData;
    std::optional<QUrl> artworkSourceURL;

    QJsonObject toJson() const;
    static Bookmark fromJson(const QJsonObject& json);

    bool operator==(const Bookmark&) const = default;
};

} // namespace folivox
