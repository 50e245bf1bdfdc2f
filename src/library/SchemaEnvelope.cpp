#include "library/SchemaEnvelope.h"

#include "core/JsonReader.h"

namespace folivox {

SchemaEnvelope SchemaEnvelope::decode(const QByteArray& text)
{
    const JsonReader r(JsonReader::parseObject(text));
    SchemaEnvelope e;
    e.schemaVersion = r.optionalInteger("schemaVersion");
    return e;
}

} // namespace folivox
