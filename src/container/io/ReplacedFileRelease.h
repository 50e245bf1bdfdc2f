#pragma once

#include <QByteArray>

namespace folivox {

// Keeps a file that is about to be renamed over open, so that the rename
// only swaps directory entries. When the last name and the last descriptor
// of a large file go, the kernel frees its blocks and drops its cached pages
// (about 0.2 s for a 1 GB book); releasing the descriptor on a background
// thread lets the caller go on meanwhile. Nothing is lost by this: the old
// file is already out of the folder when it is released.
class ReplacedFileRelease {
public:
    // Opens `path` for reading if it names a regular file; otherwise holds
    // nothing.
    explicit ReplacedFileRelease(const QByteArray& path);
    ~ReplacedFileRelease(); // closes in the caller's thread
    ReplacedFileRelease(const ReplacedFileRelease&) = delete;
    ReplacedFileRelease& operator=(const ReplacedFileRelease&) = delete;

    // After the rename: the descriptor is closed on a thread of its own.
    void releaseInBackground();

private:
    int fd_ = -1;
};

} // namespace folivox
