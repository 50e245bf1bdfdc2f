#include "queue/control/QueueControlServer.h"

#include "core/json/DecodingError.h"
#include "queue/control/QueueControlChannel.h"
#include "queue/records/QueueError.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>

namespace folivox {

namespace {

QJsonObject failure(const QString& message, const QString& kind)
{
    return {{QStringLiteral("ok"), false}, {QStringLiteral("error"), message}, {QStringLiteral("kind"), kind}};
}

QString kindName(QueueError::Kind kind)
{
    switch (kind) {
    case QueueError::Kind::jobNotFound: return QStringLiteral("jobNotFound");
    case QueueError::Kind::ambiguousJob: return QStringLiteral("ambiguousJob");
    case QueueError::Kind::notAllowed: return QStringLiteral("notAllowed");
    case QueueError::Kind::outputTaken: return QStringLiteral("outputTaken");
    default: return QStringLiteral("failed");
    }
}

} // namespace

QueueControlServer::QueueControlServer(std::shared_ptr<QueueService> service, QObject* parent)
    : QObject(parent)
    , service_(std::move(service))
    , server_(new QLocalServer(this))
{
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    connect(server_, &QLocalServer::newConnection, this, &QueueControlServer::onConnection);
}

QueueControlServer::~QueueControlServer()
{
    server_->close();
}

bool QueueControlServer::listen()
{
    const QString name = QueueControlChannel::serverName(service_->store().baseURL());
    QLocalServer::removeServer(name);
    return server_->listen(name);
}

void QueueControlServer::onConnection()
{
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (!socket->canReadLine())
                return;
            const QJsonDocument doc = QJsonDocument::fromJson(socket->readLine());
            const QJsonObject reply = doc.isObject() ? answer(*service_, doc.object(), true) : failure(QStringLiteral("not a request"), QStringLiteral("usage"));
            socket->write(QJsonDocument(reply).toJson(QJsonDocument::Compact) + '\n');
            socket->flush();
            socket->disconnectFromServer();
        });
    }
}

QJsonObject QueueControlServer::listing(const QueueService& service)
{
    QJsonArray jobs;
    for (const QueueJob& job : service.jobs()) {
        QJsonObject o = job.toJson();
        o.insert(QStringLiteral("progress"), job.progress);
        if (job.progressPhase)
            o.insert(QStringLiteral("progressPhase"), *job.progressPhase);
        jobs.append(o);
    }
    QJsonObject reply{{QStringLiteral("ok"), true},
                      {QStringLiteral("jobs"), jobs},
                      {QStringLiteral("isProcessing"), service.isProcessing()},
                      {QStringLiteral("pid"), QCoreApplication::applicationPid()}};
    if (const auto halt = service.halt())
        reply.insert(QStringLiteral("halt"), halt->toJson());
    if (const auto current = service.currentJobID())
        reply.insert(QStringLiteral("currentJobID"), current->toString(QUuid::WithoutBraces).toUpper());
    if (const auto error = service.saveError())
        reply.insert(QStringLiteral("saveError"), *error);
    return reply;
}

QJsonObject QueueControlServer::answer(QueueService& service, const QJsonObject& request, bool running)
{
    const QString command = request.value(QStringLiteral("command")).toString();
    const QString idText = request.value(QStringLiteral("id")).toString();
    try {
        if (command == u"list")
            return listing(service);
        if (command == u"stop") {
            if (!running)
                return failure(QueueError::noRun().description(), QStringLiteral("noRun"));
            service.stopAfterCurrent();
            return {{QStringLiteral("ok"), true}};
        }
        if (command == u"resume") {
            if (!running)
                return failure(QueueError::noRun().description(), QStringLiteral("noRun"));
            return {{QStringLiteral("ok"), true}, {QStringLiteral("resumed"), service.resume()}};
        }
        if (command == u"add") {
            QueueJob job = QueueJob::fromJson(request.value(QStringLiteral("job")).toObject());
            const QString id = job.id.toString(QUuid::WithoutBraces).toUpper();
            service.enqueue(std::move(job));
            // A run that has just emptied its list picks the new job up.
            if (running)
                service.start();
            return {{QStringLiteral("ok"), true}, {QStringLiteral("id"), id}};
        }
        const QUuid id = service.resolve(idText);
        const QString full = id.toString(QUuid::WithoutBraces).toUpper();
        if (command == u"cancel") {
            const bool wasRunning = service.cancel(id) == QueueService::CancelResult::cancelling;
            return {{QStringLiteral("ok"), true}, {QStringLiteral("id"), full}, {QStringLiteral("wasRunning"), wasRunning}};
        }
        if (command == u"retry") {
            service.retry(id);
            return {{QStringLiteral("ok"), true}, {QStringLiteral("id"), full}};
        }
        if (command == u"remove") {
            service.remove(id);
            return {{QStringLiteral("ok"), true}, {QStringLiteral("id"), full}};
        }
        return failure(QStringLiteral("unknown command '%1'").arg(command), QStringLiteral("usage"));
    } catch (const QueueError& e) {
        return failure(e.description(), kindName(e.kind()));
    } catch (const DecodingError& e) {
        return failure(e.description(), QStringLiteral("usage"));
    } catch (const Error& e) {
        return failure(e.description(), QStringLiteral("failed"));
    }
}

} // namespace folivox
