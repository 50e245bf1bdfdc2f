#include "support/ScriptedTool.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace folivox::test {

namespace {
QString writeExecutable(const QString& dir, const QString& name, const QByteArray& bytes)
{
    QDir().mkpath(dir);
    const QString path = QDir(dir).filePath(name);
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size()) {
        ADD_FAILURE() << "cannot write " << path.toStdString();
        return path;
    }
    f.close();
    if (!f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup
                          | QFile::ExeGroup))
        ADD_FAILURE() << "cannot make " << path.toStdString() << " executable";
    return path;
}
} // namespace

QString ScriptedTool::write(const QString& dir, const QString& name, const QString& body)
{
    return writeExecutable(dir, name, "#!/bin/sh\n" + body.toUtf8() + "\n");
}

QString ScriptedTool::writeForeignBinary(const QString& dir, const QString& name)
{
    // No "#!" and no ELF header for this machine: execve() refuses it with
    // ENOEXEC, as it does a binary for another processor.
    return writeExecutable(dir, name, QByteArray("\x7f" "ELF\x02\x01\x01", 7) + QByteArray(120, '\xAB'));
}

ScopedEnvironment::ScopedEnvironment(const char* name, const QString& value)
    : name_(name), hadValue_(qEnvironmentVariableIsSet(name)), oldValue_(qgetenv(name))
{
    qputenv(name_, value.toUtf8());
}

ScopedEnvironment::~ScopedEnvironment()
{
    if (hadValue_)
        qputenv(name_, oldValue_);
    else
        qunsetenv(name_);
}

} // namespace folivox::test
