#include "queue/control/QueueControlChannel.h"

#include "queue/records/QueueError.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QThread>

#include <unistd.h>

namespace folivox {

QString QueueControlChannel::serverName(const QString& queueFolder)
{
    const QString canonical = QFileInfo(queueFolder).canonicalFilePath();
    const QByteArray hash = QCryptographicHash::hash((canonical.isEmpty() ? QDir::cleanPath(queueFolder) : canonical).toUtf8(),
                                                     QCryptographicHash::Sha1)
                                .toHex()
                                .left(16);
    return QStringLiteral("folivox-queue-%1-%2").arg(::getuid()).arg(QString::fromLatin1(hash));
}

QJsonObject QueueControlChannel::send(const QString& queueFolder, const QJsonObject& request, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    QLocalSocket socket;
    // A run that has just taken its lock may not listen yet: try again for a while.
    for (;;) {
        socket.connectToServer(serverName(queueFolder));
        if (socket.waitForConnected(1000))
            break;
        if (timer.elapsed() > timeoutMs)
            throw QueueError::controlFailed(socket.errorString());
        socket.abort();
        QThread::msleep(50);
    }
    socket.write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');
    socket.flush();
    QByteArray answer;
    while (!answer.contains('\n')) {
        const qint64 left = timeoutMs - timer.elapsed();
        if (left <= 0 || (!socket.waitForReadyRead(static_cast<int>(left)) && socket.bytesAvailable() == 0)) {
            if (socket.state() != QLocalSocket::ConnectedState && socket.bytesAvailable() == 0)
                break;
            if (timer.elapsed() > timeoutMs)
                break;
        }
        answer += socket.readAll();
    }
    socket.disconnectFromServer();
    const QJsonDocument doc = QJsonDocument::fromJson(answer.left(answer.indexOf('\n')));
    if (!doc.isObject())
        throw QueueError::controlFailed(QStringLiteral("no answer"));
    return doc.object();
}

} // namespace folivox
