#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace folivox::test {

// The built `folivox` command run as a user runs it: a child process with
// no standard input, its exit status and both outputs.
struct CommandRun {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    QString errText() const { return QString::fromUtf8(err); }
    // stdout parsed as one JSON object (empty when it is not one).
    QJsonObject json() const;
};

class CommandRunner {
public:
    // The folivox binary beside the mp4 tools the tests use, or empty.
    static QString folivoxBinary();
    static CommandRun run(const QStringList& args, const QString& workingDirectory, int timeoutMs = 300000);
    // One of the built programs (folivox, mp4tags, mp4art, mp4chaps) from
    // FOLIVOX_TOOLS_DIR, else from the test program's own folder; empty when
    // it is not there.
    static QString toolBinary(const QString& name);
    static CommandRun runTool(const QString& name, const QStringList& args, const QString& workingDirectory,
                              int timeoutMs = 300000);
    // Any program, by path.
    static CommandRun runProgram(const QString& program, const QStringList& args, const QString& workingDirectory,
                                 int timeoutMs = 300000);
    // Live processes (not zombies) whose command line mentions `text` (a
    // test's own folder, say), as "pid command line".
    static QStringList processesMentioning(const QString& text);
};

} // namespace folivox::test
