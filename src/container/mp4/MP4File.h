#pragma once

#include "platform/Error.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace folivox {

// An I/O failure on a file being read or edited by the MP4 code: the file, the
// operation that failed and the system's reason.
class MP4FileError : public Error {
public:
    enum class Kind { openFailed, statFailed, readFailed, writeFailed, syncFailed, truncateFailed, createFailed };

    MP4FileError(Kind kind, QString path, QString systemMessage);
    // From a failed system call's errno: its text, and its cause when it has one.
    MP4FileError(Kind kind, QString path, int err);

    Kind kind() const { return kind_; }
    const QString& path() const { return path_; }
    const QString& systemMessage() const { return systemMessage_; }
    QString description() const override;

private:
    Kind kind_;
    QString path_;
    QString systemMessage_;
};

// An open file descriptor with positioned reads and writes, closed on
// destruction. Every failure throws MP4FileError naming the file. No
// buffering: each write reaches the kernel before the call returns, and
// sync() makes it durable.
class MP4File {
public:
    enum class Access { read, update, write };

    MP4File() = default;
    MP4File(const QString& path, Access access);
    ~MP4File();
    MP4File(const MP4File&) = delete;
    MP4File& operator=(const MP4File&) = delete;
    MP4File(MP4File&& other) noexcept;
    MP4File& operator=(MP4File&& other) noexcept;

    // Creates a new file that must not exist yet, with the given POSIX mode
    // (the umask does not apply: the mode is set explicitly afterwards).
    static MP4File createNew(const QString& path, unsigned mode);
    // Takes ownership of an already open descriptor.
    static MP4File adopt(int fd, const QString& path);

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    const QString& path() const { return path_; }

    std::uint64_t size() const;
    // Reads up to count bytes at offset; fewer only at the end of the file.
    QByteArray readAt(std::uint64_t offset, std::uint64_t count) const;
    std::uint64_t readAt(std::uint64_t offset, char* into, std::uint64_t count) const;
    void writeAt(std::uint64_t offset, const char* data, std::uint64_t count);
    void writeAt(std::uint64_t offset, const QByteArray& data) { writeAt(offset, data.constData(), std::uint64_t(data.size())); }
    // Writes zeros over [offset, offset + count) in pieces of at most 1 MiB.
    void zeroFill(std::uint64_t offset, std::uint64_t count);
    void truncate(std::uint64_t size);
    void sync();
    void close();

    static constexpr std::uint64_t zeroPieceSize = 1048576;

private:
    [[noreturn]] void fail(MP4FileError::Kind kind, int err) const;

    int fd_ = -1;
    QString path_;
};

} // namespace folivox
