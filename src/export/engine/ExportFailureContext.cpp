#include "export/engine/ExportFailureContext.h"

#include <QJsonArray>

namespace folivox {

QJsonObject ExportFailureContext::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("sourceFileNames"), QJsonArray::fromStringList(sourceFileNames));
    o.insert(QStringLiteral("decodeErrorCount"), decodeErrorCount);
    o.insert(QStringLiteral("corruptStreamKilled"), corruptStreamKilled);
    o.insert(QStringLiteral("chapterIndex"), chapterIndex);
    o.insert(QStringLiteral("chapterTitle"), chapterTitle);
    return o;
}

ExportFailureContext ExportFailureContext::fromJson(const QJsonObject& json)
{
    ExportFailureContext c;
    for (const QJsonValue& v : json.value(QStringLiteral("sourceFileNames")).toArray())
        c.sourceFileNames << v.toString();
    c.decodeErrorCount = json.value(QStringLiteral("decodeErrorCount")).toInt();
    c.corruptStreamKilled = json.value(QStringLiteral("corruptStreamKilled")).toBool();
    c.chapterIndex = json.value(QStringLiteral("chapterIndex")).toInt();
    c.chapterTitle = json.value(QStringLiteral("chapterTitle")).toString();
    return c;
}

} // namespace folivox
