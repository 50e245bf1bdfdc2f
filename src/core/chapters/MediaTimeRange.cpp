#include "core/chapters/MediaTimeRange.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject MediaTimeRange::toJson() const
{
    return JsonWriter().set("start", start).set("duration", duration).object();
}

MediaTimeRange MediaTimeRange::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    return MediaTimeRange{r.number("start"), r.number("duration")};
}

} // namespace folivox
