#include "core/chapters/ChapterSnapshot.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QCryptographicHash>

namespace folivox {

std::optional<qint64> ChapterSnapshot::fingerprint(const std::optional<QByteArray>& imageBytes)
{
    if (!imageBytes)
        return std::nullopt;
    const QByteArray digest = QCryptographicHash::hash(*imageBytes, QCryptographicHash::Sha256);
    quint64 value = 0;
    for (int i = 0; i < 8; ++i)
        value = (value << 8) | static_cast<quint8>(digest[i]);
    return static_cast<qint64>(value >> 11); // 53 bits
}

QJsonObject ChapterSnapshot::toJson() const
{
    return JsonWriter()
        .set("title", title)
        .set("startTime", startTime)
        .set("duration", duration)
        .set("firstTrackURL", firstTrackURL)
        .set("artworkFingerprint", artworkFingerprint)
        .object();
}

ChapterSnapshot ChapterSnapshot::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ChapterSnapshot s;
    s.title = r.string("title");
    s.startTime = r.number("startTime");
    s.duration = r.number("duration");
    s.firstTrackURL = r.optionalUrl("firstTrackURL");
    s.artworkFingerprint = r.optionalInteger64("artworkFingerprint");
    return s;
}

} // namespace folivox
