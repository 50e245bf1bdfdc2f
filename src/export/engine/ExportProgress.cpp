#include "export/engine/ExportProgress.h"

namespace folivox {

QJsonObject ExportProgress::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("phase"), enumName(phase));
    o.insert(QStringLiteral("fraction"), fraction);
    o.insert(QStringLiteral("title"), title);
    return o;
}

} // namespace folivox
