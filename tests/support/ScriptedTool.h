#pragma once

#include <QByteArray>
#include <QString>

namespace folivox::test {

// Small shell scripts written by a test at run time to stand in for a tool
// (ffmpeg, mp4tags, ...) whose behaviour the test needs to control: exit
// codes, stderr lines, ignoring SIGTERM, hanging, dying of a signal.
class ScriptedTool {
public:
    // Writes "#!/bin/sh" and `body` to dir/name, makes it executable and
    // returns its path. Fails the current test when it cannot.
    static QString write(const QString& dir, const QString& name, const QString& body);

    // Writes bytes that no system can execute (the kernel answers ENOEXEC),
    // marked executable: a binary built for another processor.
    static QString writeForeignBinary(const QString& dir, const QString& name);
};

// Sets an environment variable for its lifetime and restores the old value.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const QString& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* name_;
    bool hadValue_;
    QByteArray oldValue_;
};

} // namespace folivox::test
