#include "platform/AppPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <sys/stat.h>
#include <unistd.h>

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

namespace {

// A folder that only this user can write: made with mode 0700, or found
// owned by the user and not writable by others. A symlink never counts.
bool privateFolder(const QString& path)
{
    const QByteArray native = QFile::encodeName(path);
    ::mkdir(native.constData(), 0700);
    struct stat st{};
    return ::lstat(native.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid()
        && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

} // namespace

QString AppPaths::lockDir()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo(runtime).isDir()) {
        const QString dir = runtime + QStringLiteral("/folivox");
        if (privateFolder(dir))
            return dir;
    }
    const QString shared = QStringLiteral("/tmp/folivox-%1").arg(::geteuid());
    if (privateFolder(shared))
        return shared;
    const QString fallback = appSupportDir() + QStringLiteral("/locks");
    QDir().mkpath(fallback);
    return fallback;
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
