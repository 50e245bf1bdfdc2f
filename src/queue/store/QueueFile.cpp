#include "queue/store/QueueFile.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject QueueFile::toJson() const
{
    return JsonWriter().set("schemaVersion", schemaVersion).set("jobs", jobs).object();
}

QueueFile QueueFile::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    QueueFile f;
    f.schemaVersion = r.integer("schemaVersion");
    f.jobs = r.list<QueueJob>("jobs");
    return f;
}

} // namespace folivox
