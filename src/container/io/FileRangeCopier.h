#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <functional>
#include <vector>

namespace folivox {

class MP4File;

// Copies byte ranges of one open file into another at a running output
// position, in pieces of at most 4 MiB: in the kernel when the two offsets
// sit at the same place within a page, from a read-only mapping of the source
// when they do not, and through one buffer where neither is available.
//
// Each finished piece is handed to the disk at once (write-behind), and the
// copier waits for pieces a few behind it, so writing out overlaps copying,
// the dirty pages stay bounded and a closing sync has little left to do.
// Throws MP4FileError when the output can't be written.
class FileRangeCopier {
public:
    static constexpr std::uint64_t pieceSize = 4194304;

    FileRangeCopier(const MP4File& source, MP4File& out, std::uint64_t outputPosition = 0);

    // Copies the file at source to a new file at target (which must not
    // exist) with the given permissions. onPiece gets the bytes done and the
    // total after each piece and may throw to stop; the target is removed on
    // any failure. Throws MP4FileError, or GenericError when the source
    // changes size during the copy.
    static void copyFile(const QString& source, const QString& target, unsigned mode,
                         const std::function<void(std::uint64_t done, std::uint64_t total)>& onPiece = {});

    std::uint64_t position() const { return outPos_; }

    // Called after each piece with the output position; may throw to stop.
    std::function<void(std::uint64_t)> onPiece;

    // Writes bytes at the output position.
    void write(const QByteArray& bytes);

    // Copies count bytes of the source from offset from. Returns the number
    // copied, less than count only when the source ended first.
    std::uint64_t copy(std::uint64_t from, std::uint64_t count);

private:
    void writeBehind();
    std::uint64_t piece(std::uint64_t from, std::uint64_t want);
    std::uint64_t kernelPiece(std::uint64_t from, std::uint64_t want);
    std::uint64_t mappedPiece(std::uint64_t from, std::uint64_t want);

    const MP4File& source_;
    MP4File& out_;
    std::uint64_t outPos_ = 0;
    std::uint64_t started_ = 0; // write-out requested below this
    std::uint64_t waited_ = 0;  // write-out finished below this
    bool kernelCopy_ = true;
    bool mapCopy_ = true;
    std::vector<char> buffer_;
};

} // namespace folivox
