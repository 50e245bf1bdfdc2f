#include "library/files/SchemaEnvelope.h"

#include "core/json/JsonReader.h"

namespace folivox {

SchemaEnvelope SchemaEnvelope::decode(const QByteArray& text)
{
    return decode(JsonReader::parseObject(text));
}

SchemaEnvelope SchemaEnvelope::decode(const QJsonObject& object)
{
    const JsonReader r(object);
    SchemaEnvelope e;
    e.schemaVersion = r.optionalInteger("schemaVersion");
    return e;
}

} // namespace folivox
