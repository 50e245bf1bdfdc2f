#include "sidecars/discovery/SidecarDiscoveryResult.h"

#include <QJsonArray>

namespace folivox {

QJsonObject SidecarDiscoveryResult::toJson() const
{
    QJsonObject o;
    if (match)
        o.insert(QStringLiteral("match"), match->toJson());
    QJsonArray files;
    for (const QUrl& u : discoveredFiles)
        files.append(u.toString());
    o.insert(QStringLiteral("discoveredFiles"), files);
    o.insert(QStringLiteral("errors"), QJsonArray::fromStringList(errors));
    return o;
}

} // namespace folivox
