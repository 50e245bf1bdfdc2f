#include "support/CommandRunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>

namespace folivox::test {

QJsonObject CommandRun::json() const
{
    return QJsonDocument::fromJson(out).object();
}

QString CommandRunner::folivoxBinary()
{
    const QString dir = qEnvironmentVariable("FOLIVOX_TOOLS_DIR");
    const QString path = QDir(dir).filePath(QStringLiteral("folivox"));
    return !dir.isEmpty() && QFileInfo::exists(path) ? path : QString();
}

CommandRun CommandRunner::run(const QStringList& args, const QString& workingDirectory, int timeoutMs)
{
    QProcess p;
    p.setWorkingDirectory(workingDirectory);
    p.setStandardInputFile(QProcess::nullDevice());
    p.start(folivoxBinary(), args);
    CommandRun r;
    if (!p.waitForStarted(10000))
        return r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
    }
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

QStringList CommandRunner::processesMentioning(const QString& text)
{
    QStringList found;
    for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool numeric = false;
        pid.toInt(&numeric);
        if (!numeric)
            continue;
        QFile statFile(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!statFile.open(QIODevice::ReadOnly))
            continue;
        const QByteArray stat = statFile.readAll();
        const qsizetype close = stat.lastIndexOf(')');
        if (close < 0 || close + 2 >= stat.size() || stat.at(close + 2) == 'Z')
            continue;
        QFile cmdFile(QStringLiteral("/proc/%1/cmdline").arg(pid));
        if (!cmdFile.open(QIODevice::ReadOnly))
            continue;
        QByteArray cmd = cmdFile.readAll();
        cmd.replace('\0', ' ');
        if (cmd.contains(text.toUtf8()))
            found << pid + u' ' + QString::fromUtf8(cmd);
    }
    return found;
}

} // namespace folivox::test
