#include "platform/SleepInhibitor.h"

#include "platform/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QFile>

#include <fcntl.h>
#include <unistd.h>

namespace folivox {

SleepInhibitor::SleepInhibitor(const QString& reason)
{
    if (!QFile::exists(QStringLiteral("/run/dbus/system_bus_socket"))
        && qEnvironmentVariableIsEmpty("DBUS_SYSTEM_BUS_ADDRESS")) {
        return;
    }
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
        QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
    call << QStringLiteral("sleep:idle") << QStringLiteral("Folivox") << reason << QStringLiteral("block");
    QDBusReply<QDBusUnixFileDescriptor> reply = bus.call(call, QDBus::Block, 2000);
    if (!reply.isValid())
        return;
    // The descriptor in the reply closes with it; keep our own duplicate.
    fd_ = ::fcntl(reply.value().fileDescriptor(), F_DUPFD_CLOEXEC, 0);
    if (fd_ >= 0)
        Log::write(QStringLiteral("[Export] Sleep inhibited: ") + reason);
}

SleepInhibitor::~SleepInhibitor()
{
    if (fd_ >= 0)
        ::close(fd_);
}

} // namespace folivox
