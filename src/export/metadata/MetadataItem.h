#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// One iTunes tag to write into an MP4: its atom and value.
//   - text atoms ("©nam", "aART", "desc", ...): value is the text;
//   - "stik": value is the media type name ("audiobook");
//   - "trkn" / "disk": value is the number, total the count (when known);
//   - "----": a freeform item under "com.apple.iTunes", named by name.
struct MetadataItem {
    QString atom;
    QString value;
    std::optional<int> total;
    std::optional<QString> name;

    static MetadataItem text(const QString& atom, const QString& value);
    static MetadataItem freeform(const QString& name, const QString& value);

    bool isFreeform() const { return atom == QStringLiteral("----"); }

    QJsonObject toJson() const;
    static MetadataItem fromJson(const QJsonObject& json);

    bool operator==(const MetadataItem&) const = default;
};

} // namespace folivox
