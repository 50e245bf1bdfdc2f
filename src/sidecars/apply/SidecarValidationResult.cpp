#include "sidecars/apply/SidecarValidationResult.h"

#include <QJsonArray>

namespace folivox {

QJsonObject SidecarValidationResult::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("isValid"), isValid);
    QJsonArray rows;
    for (const auto& c : chapters)
        rows.append(c.toJson());
    o.insert(QStringLiteral("chapters"), rows);
    QJsonArray ws;
    for (const auto& w : warnings)
        ws.append(w.toJson());
    o.insert(QStringLiteral("warnings"), ws);
    return o;
}

} // namespace folivox
