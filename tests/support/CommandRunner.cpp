#include "support/CommandRunner.h"

#include <QCoreApplication>
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
    return toolBinary(QStringLiteral("folivox"));
}

CommandRun CommandRunner::run(const QStringList& args, const QString& workingDirectory, int timeoutMs)
{
    return runTool(QStringLiteral("folivox"), args, workingDirectory, timeoutMs);
}

QString CommandRunner::toolBinary(const QString& name)
{
    // ctest names the folder; a test program started by hand looks in its
    // own folder, where the build puts every program.
    QString dir = qEnvironmentVariable("FOLIVOX_TOOLS_DIR");
    if (dir.isEmpty())
        dir = QCoreApplication::applicationDirPath();
    const QString path = QDir(dir).filePath(name);
    return QFileInfo::exists(path) ? path : QString();
}

CommandRun CommandRunner::runTool(const QString& name, const QStringList& args, const QString& workingDirectory,
                                  int timeoutMs)
{
    return runProgram(toolBinary(name), args, workingDirectory, timeoutMs);
}

CommandRun CommandRunner::runProgram(const QString& program, const QStringList& args, const QString& workingDirectory,
                                     int timeoutMs)
{
    QProcess p;
    p.setWorkingDirectory(workingDirectory);
    p.setStandardInputFile(QProcess::nullDevice());
    p.start(program, args);
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
