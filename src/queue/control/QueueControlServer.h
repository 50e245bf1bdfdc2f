#pragma once

#include "queue/run/QueueService.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <memory>

class QLocalServer;

namespace folivox {

// The running queue's end of the control channel (QueueControlChannel):
// answers list, cancel, stop, retry, remove, resume and add with the
// service, on the thread that owns it (an event loop must run there).
class QueueControlServer : public QObject {
    Q_OBJECT

public:
    QueueControlServer(std::shared_ptr<QueueService> service, QObject* parent = nullptr);
    ~QueueControlServer() override;

    // Listens on the queue's socket, replacing one a killed run left behind
    // (the caller holds the queue's run lock). False when it cannot listen.
    bool listen();

    // One request's answer (also used directly when no run is active).
    // `running`: the service belongs to a run, which an added job or a
    // resume sets going again; otherwise the queue only changes.
    static QJsonObject answer(QueueService& service, const QJsonObject& request, bool running);
    // The list's form: every job with its live progress, the halt, the run's state.
    static QJsonObject listing(const QueueService& service);

private:
    void onConnection();

    std::shared_ptr<QueueService> service_;
    QLocalServer* server_ = nullptr;
};

} // namespace folivox
