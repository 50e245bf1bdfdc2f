#include "library/files/IndexFile.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject IndexFile::toJson() const
{
    return JsonWriter().set("schemaVersion", schemaVersion).set("books", books).object();
}

IndexFile IndexFile::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    IndexFile f;
    f.schemaVersion = r.integer("schemaVersion");
    f.books = r.list<LibraryBookSummary>("books");
    return f;
}

} // namespace folivox
