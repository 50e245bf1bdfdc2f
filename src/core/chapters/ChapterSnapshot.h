#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <optional>

namespace folivox {

// The state of one chapter as last saved, to tell whether the chapter list
// has changed since. The image is held only as a fingerprint of its bytes.
struct ChapterSnapshot {
    QString title;
    double startTime = 0.0;
    double duration = 0.0;
    std::optional<QUrl> firstTrackURL;
    std::optional<qint64> artworkFingerprint;

    // A fingerprint of image bytes that is the same in every run and on every
    // machine (the first 53 bits of their SHA-256, so that any JSON reader
    // keeps it exactly). No value for no image.
    static std::optional<qint64> fingerprint(const std::optional<QByteArray>& imageBytes);

    QJsonObject toJson() const;
    // title, startTime and duration are required.
    static ChapterSnapshot fromJson(const QJsonObject& json);

    bool operator==(const ChapterSnapshot&) const = default;
};

} // namespace folivox
