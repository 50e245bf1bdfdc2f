#include "queue/records/QueueBuildOrder.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

BuildRequest QueueBuildOrder::request() const
{
    BuildRequest r;
    r.book = book;
    r.settings = settings;
    r.output = outputPath;
    r.replaceExisting = replaceExisting;
    r.parallelJobs = parallelJobs;
    return r;
}

QJsonObject QueueBuildOrder::toJson() const
{
    return JsonWriter()
        .set("book", book)
        .set("settings", settings)
        .set("outputPath", outputPath)
        .set("replaceExisting", replaceExisting)
        .set("parallelJobs", parallelJobs)
        .object();
}

QueueBuildOrder QueueBuildOrder::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    QueueBuildOrder o;
    o.book = r.value<ImportedBook>("book");
    o.settings = r.value<ExportSettings>("settings");
    o.outputPath = r.string("outputPath");
    o.replaceExisting = r.boolean("replaceExisting");
    o.parallelJobs = r.optionalInteger("parallelJobs");
    return o;
}

} // namespace folivox
