#include "core/book/BuildRecord.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject BuildRecord::Output::toJson() const
{
    return JsonWriter().set("path", path).set("size", size).set("modifiedAt", modifiedAt).object();
}

BuildRecord::Output BuildRecord::Output::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    Output o;
    o.path = r.string("path");
    const std::optional<quint64> size = r.optionalUnsigned64("size");
    if (!size)
        throw DecodingError::keyNotFound(QStringLiteral("size"));
    o.size = *size;
    o.modifiedAt = r.date("modifiedAt");
    return o;
}

QJsonObject BuildRecord::toJson() const
{
    return JsonWriter()
        .set("builtAt", builtAt)
        .set("revision", revision)
        .set("settingsFingerprint", settingsFingerprint)
        .set("format", format)
        .set("outputs", outputs)
        .set("chapters", chapters.empty() ? std::nullopt : std::optional(chapters))
        .object();
}

BuildRecord BuildRecord::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    BuildRecord b;
    b.builtAt = r.date("builtAt");
    b.revision = r.integer("revision");
    b.settingsFingerprint = r.string("settingsFingerprint");
    b.format = r.enumeration<OutputFormat>("format");
    b.outputs = r.list<Output>("outputs");
    b.chapters = r.optionalList<ChapterSnapshot>("chapters").value_or(std::vector<ChapterSnapshot>{});
    return b;
}

} // namespace folivox
