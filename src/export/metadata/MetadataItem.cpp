#include "export/metadata/MetadataItem.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

MetadataItem MetadataItem::text(const QString& atom, const QString& value)
{
    MetadataItem item;
    item.atom = atom;
    item.value = value;
    return item;
}

MetadataItem MetadataItem::freeform(const QString& name, const QString& value)
{
    MetadataItem item;
    item.atom = QStringLiteral("----");
    item.value = value;
    item.name = name;
    return item;
}

QJsonObject MetadataItem::toJson() const
{
    return JsonWriter().set("atom", atom).set("value", value).set("total", total).set("name", name).object();
}

MetadataItem MetadataItem::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    MetadataItem item;
    item.atom = r.string("atom");
    item.value = r.string("value");
    item.total = r.optionalInteger("total");
    item.name = r.optionalString("name");
    return item;
}

} // namespace folivox
