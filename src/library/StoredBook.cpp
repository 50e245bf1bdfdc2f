#include "library/StoredBook.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject StoredBook::toJson() const
{
    QJsonObject refs;
    for (auto it = assetRefs.constBegin(); it != assetRefs.constEnd(); ++it)
        refs.insert(it.key(), it.value());
    QJsonObject o = JsonWriter().set("schemaVersion", schemaVersion).set("state", state).object();
    o.insert(QStringLiteral("assetRefs"), refs);
    return o;
}

StoredBook StoredBook::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    StoredBook b;
    b.schemaVersion = r.integer("schemaVersion");
    b.state = r.value<BookStateDTO>("state");
    if (!r.contains("assetRefs"))
        throw DecodingError::keyNotFound(QStringLiteral("assetRefs"));
    const QJsonObject refs = JsonReader::asObject(json.value(QStringLiteral("assetRefs")), QStringLiteral("assetRefs"));
    for (auto it = refs.constBegin(); it != refs.constEnd(); ++it)
        b.assetRefs.insert(it.key(), JsonReader::asString(it.value(), QStringLiteral("assetRefs.") + it.key()));
    return b;
}

} // namespace folivox
