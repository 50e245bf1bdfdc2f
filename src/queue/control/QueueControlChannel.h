#pragma once

#include <QJsonObject>
#include <QString>

namespace folivox {

// The local channel of a running queue: a Unix socket (QLocalServer) named
// after the queue's folder and the user, so that commands given in another
// terminal act on the run at once. One request a connection: a JSON object
// on one line ({"command": "list"|"cancel"|"stop"|"retry"|"remove"|"resume"
// |"add", "id"?, "job"?}), answered by one JSON object on one line
// ({"ok": true, ...} or {"ok": false, "error", "kind"}).
class QueueControlChannel {
public:
    // The socket's name for the queue in `queueFolder`.
    static QString serverName(const QString& queueFolder);

    // Sends one request and waits for the answer. Throws
    // QueueError::controlFailed when no run answers in time.
    static QJsonObject send(const QString& queueFolder, const QJsonObject& request, int timeoutMs = 10000);
};

} // namespace folivox
