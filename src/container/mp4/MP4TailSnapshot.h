#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <utility>
#include <vector>

namespace folivox {

// A backup of an MP4 file that the mp4 tools are about to edit, without
// copying the media.
//
// The tools change a file in place only inside the dead space around `moov`
// (its `free`/`skip` boxes and the moov itself), in the headers of top-level
// boxes (turning unused media into `free`, giving a box that runs to the end
// of the file its real size) and behind the end of the file. So the snapshot
// keeps the file's length, the moov and every free/skip box, and the first 16
// bytes of every other top-level box. Restoring writes those bytes back and
// cuts the file to its old length, which gives back the file byte for byte.
// When a tool had no room and replaced the file by a new copy, the snapshot
// no longer fits it, and restoring refuses.
//
// When the file has no `moov` to find (not an MP4, or a damaged one) the
// snapshot falls back to a full copy. Saved bytes above memoryLimit go to
// a file in the spill folder given to take(), which stays there for the
// caller to remove with the folder.
class MP4TailSnapshot {
public:
    static constexpr std::uint64_t memoryLimit = 67108864;

    // Throws MP4FileError when the file cannot be read, and GenericError
    // naming the file when the spill or full copy cannot be written.
    static MP4TailSnapshot take(const QString& path, const QString& spillFolder);

    // Puts the file back as it was when the snapshot was taken. Throws
    // MP4FileError or GenericError naming the file.
    void restore(const QString& path) const;

    bool isFullCopy() const { return fullCopy_; }
    // How many bytes were saved (the whole file for a full copy).
    std::uint64_t savedBytes() const { return savedBytes_; }
    std::uint64_t originalLength() const { return length_; }

private:
    std::uint64_t length_ = 0;
    std::uint64_t savedBytes_ = 0;
    bool fullCopy_ = false;
    // (offset in the file, bytes) of each saved range; empty bytes when the
    // ranges live in spillPath_, stored one after the other.
    std::vector<std::pair<std::uint64_t, QByteArray>> ranges_;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> spilledRanges_;
    QString spillPath_;
    std::pair<std::uint64_t, std::uint64_t> identity_{0, 0}; // device and inode
};

} // namespace folivox
