#include "support/CommandRunner.h"

#include <QDir>
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

} // namespace folivox::test
