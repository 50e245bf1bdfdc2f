#include "build/BuildResult.h"

#include "core/json/JsonSeconds.h"

#include <QJsonArray>

namespace folivox {

QJsonObject BuildResult::toJson() const
{
    QJsonObject doc = outcome.toJson();
    doc.insert(QStringLiteral("status"), QStringLiteral("built"));
    doc.insert(QStringLiteral("title"), title);
    doc.insert(QStringLiteral("tracks"), trackCount);
    doc.insert(QStringLiteral("chapterSource"), chapterSource);
    doc.insert(QStringLiteral("duration"), JsonSeconds::value(duration));
    doc.insert(QStringLiteral("settings"), settings.toJson());
    doc.insert(QStringLiteral("logFile"), logFile);
    if (!coverSource.isEmpty())
        doc.insert(QStringLiteral("coverSource"), coverSource);
    QJsonArray warningList;
    for (const QString& w : warnings)
        warningList.append(w);
    doc.insert(QStringLiteral("warnings"), warningList);
    doc.insert(QStringLiteral("damagedFiles"), damage.toJson().value(QStringLiteral("damagedFiles")));
    QJsonArray skipped;
    for (const SkippedFile& s : skippedFiles)
        skipped.append(QJsonObject{{QStringLiteral("file"), s.path}, {QStringLiteral("reason"), s.reason}});
    doc.insert(QStringLiteral("skippedFiles"), skipped);
    return doc;
}

} // namespace folivox
