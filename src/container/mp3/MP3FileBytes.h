#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace folivox {

// The bytes of a file for a scan. On a local file system the file is
// memory-mapped; on a network or FUSE file system (told by its statfs type),
// where a mapping would turn every page fault into a remote read that can
// hang, it is read into memory, and only up to kMaxReadBytes.
class MP3FileBytes {
public:
    static constexpr std::int64_t kMaxReadBytes = 536870912;
    static constexpr std::int64_t kReadChunk = 1048576;

    enum class Access { mapped, read, tooLarge };
    enum class Placement { automatic, remote };

    // Opens the file. Throws MP3IntegrityError naming the file when it cannot
    // be opened or read. `cancelled` is asked between chunks of a read; a
    // cancelled read leaves the object empty with cancelled() true.
    // Placement::remote treats the file as remote wherever it lies.
    explicit MP3FileBytes(const QString& path, const std::function<bool()>& cancelled = {},
                          Placement placement = Placement::automatic);
    ~MP3FileBytes();
    MP3FileBytes(const MP3FileBytes&) = delete;
    MP3FileBytes& operator=(const MP3FileBytes&) = delete;

    const std::uint8_t* data() const { return data_; }
    std::size_t size() const { return size_; }
    std::int64_t fileSize() const { return fileSize_; }
    Access access() const { return access_; }
    bool cancelled() const { return cancelled_; }

    // True for the statfs types of network and FUSE file systems.
    static bool isRemoteFileSystemType(long type);

private:
    const std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
    std::int64_t fileSize_ = 0;
    void* mapping_ = nullptr;
    QByteArray buffer_;
    Access access_ = Access::mapped;
    bool cancelled_ = false;
};

} // namespace folivox
