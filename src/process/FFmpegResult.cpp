#include "process/FFmpegResult.h"

#include <QStringList>

namespace folivox {

bool FFmpegResult::indicatesOutOfSpace() const
{
    return end == End::outOfSpace
           || (!succeeded() && stderr.contains(QLatin1String("No space left on device"), Qt::CaseInsensitive));
}

bool FFmpegResult::indicatesDamagedSource() const
{
    if (succeeded())
        return false;
    static const char* const kMarkers[] = {
        "invalid data found",
        "moov atom not found",
        "timescale not set",
        "invalid timescale",
        "corrupt or malformed file structure",
        "invalid presentation timestamps",
        "invalid data when processing input",
    };
    for (const char* marker : kMarkers) {
        if (stderr.contains(QLatin1String(marker), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

QJsonObject FFmpegResult::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("end"), enumName(end));
    if (outputURL)
        o.insert(QStringLiteral("outputURL"), *outputURL);
    if (error)
        o.insert(QStringLiteral("error"), *error);
    o.insert(QStringLiteral("duration"), duration);
    o.insert(QStringLiteral("stderr"), stderr);
    o.insert(QStringLiteral("decodeErrorCount"), decodeErrorCount);
    o.insert(QStringLiteral("corruptStreamKilled"), corruptStreamKilled);
    o.insert(QStringLiteral("terminationStatus"), terminationStatus);
    return o;
}

FFmpegResult FFmpegResult::fromJson(const QJsonObject& json)
{
    FFmpegResult r;
    r.end = enumFromName<End>(json.value(QStringLiteral("end")).toString()).value_or(End::failed);
    if (json.contains(QStringLiteral("outputURL")))
        r.outputURL = json.value(QStringLiteral("outputURL")).toString();
    if (json.contains(QStringLiteral("error")))
        r.error = json.value(QStringLiteral("error")).toString();
    r.duration = json.value(QStringLiteral("duration")).toDouble();
    r.stderr = json.value(QStringLiteral("stderr")).toString();
    r.decodeErrorCount = json.value(QStringLiteral("decodeErrorCount")).toInt();
    r.corruptStreamKilled = json.value(QStringLiteral("corruptStreamKilled")).toBool();
    r.terminationStatus = json.value(QStringLiteral("terminationStatus")).toInt();
    return r;
}

} // namespace folivox
