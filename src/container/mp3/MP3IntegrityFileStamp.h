#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// A file's size and modification time. A scan's report holds for as long as
// the file's stamp is unchanged.
struct MP3IntegrityFileStamp {
    qint64 fileSize = 0;
    QDateTime modificationDate;

    // The stamp of the file now; nothing when it does not exist.
    static std::optional<MP3IntegrityFileStamp> of(const QString& path);

    QJsonObject toJson() const;
    // Both keys are required.
    static MP3IntegrityFileStamp fromJson(const QJsonObject& json);

    bool operator==(const MP3IntegrityFileStamp&) const = default;
};

} // namespace folivox
