#include "build/BuildPlan.h"

#include "core/json/JsonSeconds.h"
#include "core/json/EnumNames.h"

#include <QJsonArray>

namespace folivox {

QJsonObject BuildPlan::toJson() const
{
    QJsonArray inputList;
    for (const QString& i : inputs)
        inputList.append(i);
    QJsonArray chapterList;
    for (const Chapter& c : chapters)
        chapterList.append(QJsonObject{{QStringLiteral("title"), c.title},
                                       {QStringLiteral("start"), JsonSeconds::value(c.start)},
                                       {QStringLiteral("duration"), JsonSeconds::value(c.duration)}});
    QJsonArray skipped;
    for (const auto& s : skippedFiles)
        skipped.append(QJsonObject{{QStringLiteral("file"), s.path}, {QStringLiteral("reason"), s.reason}});
    return QJsonObject{
        {QStringLiteral("status"), QStringLiteral("planned")},
        {QStringLiteral("title"), title},
        {QStringLiteral("inputs"), inputList},
        {QStringLiteral("chapters"), chapterList},
        {QStringLiteral("chapterSource"), chapterSource},
        {QStringLiteral("strategy"), enumName(strategy)},
        {QStringLiteral("reasons"), QJsonArray::fromStringList(reasons)},
        {QStringLiteral("outputPath"), outputPath},
        {QStringLiteral("replacesExisting"), replacesExisting},
        {QStringLiteral("coverSource"), coverSource},
        {QStringLiteral("damagedFiles"), damage.toJson().value(QStringLiteral("damagedFiles"))},
        {QStringLiteral("warnings"), QJsonArray::fromStringList(warnings)},
        {QStringLiteral("skippedFiles"), skipped},
    };
}

} // namespace folivox
