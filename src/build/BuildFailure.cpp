#include "build/BuildFailure.h"

#include "platform/L10n.h"

namespace folivox {

BuildFailure BuildFailure::cancelled()
{
    return BuildFailure(Kind::cancelled, L10n::text("build.cancelled", "cancelled"));
}

QJsonObject BuildFailure::toJson() const
{
    QJsonObject json;
    json.insert(QStringLiteral("status"), kind_ == Kind::usage      ? QStringLiteral("usage")
                                          : kind_ == Kind::cancelled ? QStringLiteral("cancelled")
                                                                     : QStringLiteral("failed"));
    json.insert(QStringLiteral("message"), message_);
    if (file_)
        json.insert(QStringLiteral("file"), *file_);
    if (!logFile.isEmpty())
        json.insert(QStringLiteral("logFile"), logFile);
    return json;
}

} // namespace folivox
