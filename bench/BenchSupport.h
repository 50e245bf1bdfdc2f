#pragma once

// Helpers shared by the benchmark programs that time whole commands.

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace folivox::bench {

struct Result {
    int exitCode = -1;
    double seconds = 0;
    QByteArray err;
};

// Runs a program to its end with standard input and output on the null
// device; wall time, exit status and standard error come back.
inline Result run(const QString& program, const QStringList& args, const QString& workingDirectory = {})
{
    QProcess p;
    p.setStandardInputFile(QProcess::nullDevice());
    p.setStandardOutputFile(QProcess::nullDevice());
    if (!workingDirectory.isEmpty())
        p.setWorkingDirectory(workingDirectory);
    QElapsedTimer clock;
    clock.start();
    p.start(program, args);
    Result r;
    if (!p.waitForStarted(10000))
        return r;
    p.waitForFinished(-1);
    r.seconds = double(clock.elapsed()) / 1000.0;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.err = p.readAllStandardError();
    return r;
}

inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

// The folivox binary built beside this benchmark; empty (with a message)
// when it has not been built.
inline QString folivoxBinary()
{
    const QString folivox = QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("folivox"));
    if (!QFileInfo::exists(folivox)) {
        std::fprintf(stderr, "build the folivox target first (%s)\n", qPrintable(folivox));
        return {};
    }
    return folivox;
}

} // namespace folivox::bench
