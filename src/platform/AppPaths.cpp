#include "platform/AppPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace folivox {

QString AppPaths::appSupportDir()
{
    QString dir = qEnvironmentVariable("FOLIVOX_HOME");
    if (dir.isEmpty())
        dir = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (dir.isEmpty())
        dir = QDir::homePath() + QStringLiteral("/.local/share/Folivox");
    QDir().mkpath(dir);
    return QDir(dir).absolutePath();
}

QString AppPaths::workRoot()
{
    const QString dir = QDir::tempPath() + QStringLiteral("/FolivoxWork");
    QDir().mkpath(dir);
    return dir;
}

QStringList AppPaths::toolDirectories()
{
    QStringList dirs;
    const QString env = qEnvironmentVariable("FOLIVOX_TOOLS_DIR");
    if (!env.isEmpty())
        dirs << env;
    QString exeDir;
    if (QCoreApplication::instance())
        exeDir = QCoreApplication::applicationDirPath();
    else
        exeDir = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath().section(u'/', 0, -2);
    if (!exeDir.isEmpty()) {
        dirs << QDir::cleanPath(exeDir + QStringLiteral("/../libexec/folivox"));
        dirs << exeDir;
    }
    return dirs;
}

} // namespace folivox
