#include "library/RemovedBook.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject RemovedBook::toJson() const
{
    return JsonWriter().set("index", index).set("summary", summary).set("restorable", restorable).object();
}

RemovedBook RemovedBook::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    RemovedBook b;
    b.index = r.integer("index");
    b.summary = r.value<LibraryBookSummary>("summary");
    b.restorable = r.boolean("restorable");
    return b;
}

} // namespace folivox
