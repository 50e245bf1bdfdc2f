#pragma once

// Runs the built `folivox` program as a child, optionally as a user without
// root's power to read every file: permission faults can then be made with
// chmod even when the tests run as root.
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <grp.h>
#include <unistd.h>

namespace folivox::test {

struct CliRun {
    int exitCode = -1;
    bool finished = false;  // false: still running at the time limit, then killed
    QString out;
    QString err;
};

inline QString folivoxProgram()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/folivox");
}

struct CliOptions {
    QString workDir;
    // Run as the user "nobody" (65534) when this process is root; as this
    // process's own user otherwise, where chmod already bites.
    bool unprivileged = false;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    int timeoutMs = 180'000;
};

inline CliRun runFolivox(const QStringList& args, const CliOptions& options = {})
{
    QProcess p;
    p.setProgram(folivoxProgram());
    p.setArguments(args);
    p.setProcessEnvironment(options.environment);
    if (!options.workDir.isEmpty())
        p.setWorkingDirectory(options.workDir);
    p.setStandardInputFile(QProcess::nullDevice());
    if (options.unprivileged && ::geteuid() == 0) {
        p.setChildProcessModifier([] {
            // Runs in the child between fork and exec: give up root for good.
            if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
                ::_exit(126);
        });
    }
    p.start();
    CliRun r;
    if (!p.waitForStarted(10'000))
        return r;
    r.finished = p.waitForFinished(options.timeoutMs);
    if (!r.finished) {
        p.kill();
        p.waitForFinished();
    }
    r.exitCode = r.finished && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

// A folder everyone may use, for tests whose child runs unprivileged: the
// test process's own temporary folder is private to its user. It holds a
// home and a temporary folder for the child.
class SharedTestFolder {
public:
    SharedTestFolder()
        : dir_(QStringLiteral("/tmp/folivox-shared-XXXXXX"))
    {
        QFile::setPermissions(dir_.path(), QFileDevice::Permissions(0x7777));
        for (const char* sub : {"home", "tmp", "out"}) {
            QDir(dir_.path()).mkpath(QString::fromLatin1(sub));
            QFile::setPermissions(path(QString::fromLatin1(sub)), QFileDevice::Permissions(0x7777));
        }
    }
    QString path(const QString& name) const { return dir_.filePath(name); }
    bool isValid() const { return dir_.isValid(); }

    // The child's environment: home and temporary folder in here.
    CliOptions options(bool unprivileged) const
    {
        CliOptions o;
        o.unprivileged = unprivileged;
        o.environment.insert(QStringLiteral("FOLIVOX_HOME"), path(QStringLiteral("home")));
        o.environment.insert(QStringLiteral("TMPDIR"), path(QStringLiteral("tmp")));
        o.workDir = path(QStringLiteral("out"));
        return o;
    }

private:
    QTemporaryDir dir_;
};

} // namespace folivox::test
