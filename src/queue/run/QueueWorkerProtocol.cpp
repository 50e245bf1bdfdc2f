#include "queue/run/QueueWorkerProtocol.h"

#include "core/json/JsonReader.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace folivox {

namespace {

QByteArray line(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace

QByteArray QueueWorkerProtocol::progress(const QString& phase, double fraction)
{
    return line({{QStringLiteral("event"), QStringLiteral("progress")},
                 {QStringLiteral("phase"), phase},
                 {QStringLiteral("fraction"), fraction}});
}

QByteArray QueueWorkerProtocol::note(const QString& text)
{
    return line({{QStringLiteral("event"), QStringLiteral("note")}, {QStringLiteral("text"), text}});
}

QByteArray QueueWorkerProtocol::started(double seconds)
{
    return line({{QStringLiteral("event"), QStringLiteral("started")}, {QStringLiteral("seconds"), seconds}});
}

QByteArray QueueWorkerProtocol::built(const QueueJobBuilder::Built& built)
{
    return line({{QStringLiteral("event"), QStringLiteral("built")},
                 {QStringLiteral("outputPath"), built.outputPath},
                 {QStringLiteral("outputFiles"), QJsonArray::fromStringList(built.outputFiles)},
                 {QStringLiteral("logFile"), built.logFile}});
}

QByteArray QueueWorkerProtocol::failed(const QueueBuildFailure& failure)
{
    return line({{QStringLiteral("event"), QStringLiteral("failed")}, {QStringLiteral("failure"), failure.toJson()}});
}

void QueueWorkerProtocol::read(const QByteArray& text, const BuildUseCase::Sinks& sinks, Ending& ending)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(text, &error);
    if (!doc.isObject())
        return;
    const QJsonObject o = doc.object();
    const QString event = o.value(QStringLiteral("event")).toString();
    if (event == u"progress") {
        if (sinks.progress)
            sinks.progress(o.value(QStringLiteral("phase")).toString(), o.value(QStringLiteral("fraction")).toDouble());
    } else if (event == u"note") {
        if (sinks.note)
            sinks.note(o.value(QStringLiteral("text")).toString());
    } else if (event == u"started") {
        if (sinks.started)
            sinks.started(o.value(QStringLiteral("seconds")).toDouble());
    } else if (event == u"built") {
        QueueJobBuilder::Built b;
        b.outputPath = o.value(QStringLiteral("outputPath")).toString();
        for (const QJsonValue& v : o.value(QStringLiteral("outputFiles")).toArray())
            b.outputFiles << v.toString();
        b.logFile = o.value(QStringLiteral("logFile")).toString();
        ending.built = b;
    } else if (event == u"failed") {
        try {
            ending.failure = QueueBuildFailure::fromJson(o.value(QStringLiteral("failure")).toObject());
        } catch (const DecodingError&) {
        }
    }
}

} // namespace folivox
