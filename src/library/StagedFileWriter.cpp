#include "library/StagedFileWriter.h"

#include "container/io/FaultInjection.h"
#include "platform/Error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace folivox {

namespace {

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

[[noreturn]] void fail(const QString& target, const QString& what)
{
    throw GenericError(QStringLiteral("Could not write %1: %2").arg(target, what));
}

void syncFolder(const QString& folder)
{
    const int fd = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

StagedFileWriter::StagedFileWriter(QString stagingFolder)
    : staging_(std::move(stagingFolder))
{
}

QString StagedFileWriter::stagedName(const QString& target) const
{
    return staging_ + u'/' + QUuid::createUuid().toString(QUuid::Id128) + u'-' + QFileInfo(target).fileName();
}

void StagedFileWriter::commit(const QString& staged, const QString& target, const char* point) const
{
    FaultInjection::reach((QByteArray(point) + ".staged").constData());
    if (::rename(QFile::encodeName(staged).constData(), QFile::encodeName(target).constData()) != 0) {
        const QString why = systemError();
        QFile::remove(staged);
        fail(target, why);
    }
    syncFolder(QFileInfo(target).absolutePath());
    FaultInjection::reach((QByteArray(point) + ".replaced").constData());
}

void StagedFileWriter::write(const QString& target, const QByteArray& bytes, const char* point) const
{
    const QString staged = stagedName(target);
    const QByteArray path = QFile::encodeName(staged);
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        fail(target, systemError());
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            const QString why = systemError();
            ::close(fd);
            ::unlink(path.constData());
            fail(target, why);
        }
        done += n;
    }
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        const QString why = systemError();
        ::unlink(path.constData());
        fail(target, why);
    }
    commit(staged, target, point);
}

void StagedFileWriter::preserve(const QString& source, const QString& target, const char* point) const
{
    const QString staged = stagedName(target);
    if (::link(QFile::encodeName(source).constData(), QFile::encodeName(staged).constData()) != 0) {
        QFile in(source);
        if (!in.open(QIODevice::ReadOnly))
            fail(target, in.errorString());
        write(target, in.readAll(), point);
        return;
    }
    commit(staged, target, point);
}

void StagedFileWriter::clearStaging() const
{
    QDir dir(staging_);
    if (dir.exists()) {
        for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden | QDir::System))
            dir.remove(name);
    } else {
        QDir().mkpath(staging_);
    }
}

} // namespace folivox
