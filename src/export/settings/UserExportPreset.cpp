#include "export/settings/UserExportPreset.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject UserExportPreset::toJson() const
{
    return JsonWriter().set("id", id).set("name", name).set("settings", settings).set("createdAt", createdAt).object();
}

UserExportPreset UserExportPreset::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    UserExportPreset p;
    p.id = r.uuid("id");
    p.name = r.string("name");
    p.settings = r.value<ExportSettings>("settings");
    p.createdAt = r.date("createdAt");
    return p;
}

} // namespace folivox
