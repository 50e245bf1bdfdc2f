#include "support/ChildProcessCheck.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <cstdio>
#include <unistd.h>

namespace folivox::test {

QList<int> liveChildren()
{
    QList<int> out;
    const QString self = QString::number(::getpid());
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& e : entries) {
        bool ok = false;
        const int pid = e.toInt(&ok);
        if (!ok)
            continue;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            continue;
        const QString line = QString::fromLatin1(stat.readAll());
        // Fields after the parenthesised command name: state, ppid, ...
        const qsizetype close = line.lastIndexOf(u')');
        const QStringList fields = line.mid(close + 2).split(u' ');
        if (fields.size() < 2)
            continue;
        if (fields[1] == self && fields[0] != QStringLiteral("Z"))
            out.append(pid);
    }
    return out;
}

int reportLeftoverChildren()
{
    QList<int> kids;
    for (int i = 0; i < 20; ++i) {
        kids = liveChildren();
        if (kids.isEmpty())
            return 0;
        QThread::msleep(100);
    }
    for (int pid : kids) {
        QFile cmd(QStringLiteral("/proc/%1/cmdline").arg(pid));
        QByteArray text;
        if (cmd.open(QIODevice::ReadOnly))
            text = cmd.readAll().replace('\0', ' ');
        std::fprintf(stderr, "LEFTOVER CHILD PROCESS pid=%d: %s\n", pid, text.constData());
    }
    return static_cast<int>(kids.size());
}

} // namespace folivox::test
