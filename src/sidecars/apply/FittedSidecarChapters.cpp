#include "sidecars/apply/FittedSidecarChapters.h"

#include <QJsonArray>

namespace folivox {

QString FittedSidecarChapters::firstProblem() const
{
    for (const SidecarWarningSeverity wanted : {SidecarWarningSeverity::error, SidecarWarningSeverity::warning}) {
        for (const SidecarWarning& w : warnings) {
            if (w.severity == wanted)
                return w.message;
        }
    }
    return {};
}

QJsonObject FittedSidecarChapters::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("isValid"), isValid);
    o.insert(QStringLiteral("format"), sidecarFormatRawValue(format));
    QJsonArray rows;
    for (const NormalizedChapter& c : chapters)
        rows.append(c.toJson());
    o.insert(QStringLiteral("chapters"), rows);
    QJsonArray ws;
    for (const SidecarWarning& w : warnings)
        ws.append(w.toJson());
    o.insert(QStringLiteral("warnings"), ws);
    if (totalDurationMs > 0)
        o.insert(QStringLiteral("totalDurationMs"), static_cast<qint64>(totalDurationMs));
    return o;
}

} // namespace folivox
