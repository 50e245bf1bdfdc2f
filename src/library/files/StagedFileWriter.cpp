#include "library/files/StagedFileWriter.h"

#include "container/io/FaultInjection.h"
#include "platform/Error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
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

// Writes all of `bytes` to `fd`; false with errno set when a write fails.
bool writeAll(int fd, const QByteArray& bytes)
{
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + done, static_cast<size_t>(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = EIO;
            return false;
        }
        done += n;
    }
    return true;
}

// Opens a new staging file and writes `bytes` into it; gives its descriptor.
int writeStaged(const QString& staged, const QString& target, const QByteArray& bytes)
{
    const QByteArray path = QFile::encodeName(staged);
    const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        fail(target, systemError());
    if (!writeAll(fd, bytes)) {
        const QString why = systemError();
        ::close(fd);
        ::unlink(path.constData());
        fail(target, why);
    }
    return fd;
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
    const int fd = writeStaged(staged, target, bytes);
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        const QString why = systemError();
        ::unlink(QFile::encodeName(staged).constData());
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

void StagedFileWriter::writeUnflushed(const QString& target, const QByteArray& bytes) const
{
    const QString staged = stagedName(target);
    const int fd = writeStaged(staged, target, bytes);
#ifdef __linux__
    ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
#endif
    if (::close(fd) != 0) {
        const QString why = systemError();
        QFile::remove(staged);
        fail(target, why);
    }
    if (::rename(QFile::encodeName(staged).constData(), QFile::encodeName(target).constData()) != 0) {
        const QString why = systemError();
        QFile::remove(staged);
        fail(target, why);
    }
}

StagedFileWriter::Batch::Batch(const StagedFileWriter& writer)
    : writer_(writer)
{
}

StagedFileWriter::Batch::~Batch()
{
    discard();
}

void StagedFileWriter::Batch::discard()
{
    for (File& f : files_) {
        if (f.fd >= 0)
            ::close(f.fd);
        if (!f.staged.isEmpty())
            ::unlink(QFile::encodeName(f.staged).constData());
    }
    files_.clear();
}

void StagedFileWriter::Batch::add(const QString& target, const QByteArray& bytes)
{
    File file;
    file.target = target;
    file.staged = writer_.stagedName(target);
    file.fd = writeStaged(file.staged, target, bytes);
    files_.push_back(std::move(file));
}

void StagedFileWriter::Batch::commit(const char* point)
{
    for (File& f : files_) {
        const int fd = f.fd;
        f.fd = -1;
        const bool flushed = ::fsync(fd) == 0;
        const int flushError = errno;
        if (::close(fd) != 0 || !flushed) {
            if (!flushed)
                errno = flushError;
            const QString why = systemError();
            const QString target = f.target;
            discard();
            fail(target, why);
        }
    }
    FaultInjection::reach((QByteArray(point) + ".staged").constData());
    QStringList folders;
    for (File& f : files_) {
        if (::rename(QFile::encodeName(f.staged).constData(), QFile::encodeName(f.target).constData()) != 0) {
            const QString why = systemError();
            const QString target = f.target;
            for (const QString& done : folders)
                syncFolder(done);
            discard();
            fail(target, why);
        }
        f.staged.clear(); // in place: nothing left to remove
        const QString folder = QFileInfo(f.target).absolutePath();
        if (!folders.contains(folder))
            folders << folder;
    }
    for (const QString& folder : folders)
        syncFolder(folder);
    files_.clear();
    FaultInjection::reach((QByteArray(point) + ".replaced").constData());
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
