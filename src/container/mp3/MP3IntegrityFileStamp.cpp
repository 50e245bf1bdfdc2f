#include "container/mp3/MP3IntegrityFileStamp.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QFileInfo>

namespace folivox {

std::optional<MP3IntegrityFileStamp> MP3IntegrityFileStamp::of(const QString& path)
{
    QFileInfo info(path);
    info.setCaching(false);
    if (!info.exists() || !info.isFile())
        return std::nullopt;
    return MP3IntegrityFileStamp{info.size(), info.lastModified().toUTC()};
}

QJsonObject MP3IntegrityFileStamp::toJson() const
{
    return JsonWriter().set("fileSize", fileSize).set("modificationDate", modificationDate).object();
}

MP3IntegrityFileStamp MP3IntegrityFileStamp::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    return MP3IntegrityFileStamp{r.integer64("fileSize"), r.date("modificationDate")};
}

} // namespace folivox
