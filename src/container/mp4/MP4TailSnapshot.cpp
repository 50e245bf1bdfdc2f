#include "container/mp4/MP4TailSnapshot.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "platform/Error.h"
#include "platform/Log.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <optional>
#include <sys/stat.h>

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kFree = MP4Bytes::fourCC("free");
constexpr std::uint32_t kSkip = MP4Bytes::fourCC("skip");

[[noreturn]] void spillFailed(const QString& path, const QString& why)
{
    throw GenericError(QStringLiteral("Cannot back up “%1”: %2").arg(QFileInfo(path).fileName(), why));
}

// The ranges to save, or nothing when the file has no moov to find: the
// moov and every free/skip box whole, and the first 16 bytes of every other
// top-level box (a header the rewriter may turn into free space or give its
// real size). Adjacent ranges are merged.
std::optional<std::vector<std::pair<std::uint64_t, std::uint64_t>>> rangesOf(const MP4File& file, std::uint64_t size)
{
    QList<MP4BoxHeader> boxes;
    try {
        boxes = MP4BoxHeader::listTopLevel(file, size);
    } catch (const Error&) {
        return std::nullopt;
    }
    if (std::none_of(boxes.begin(), boxes.end(), [](const MP4BoxHeader& b) { return b.is(kMoov); }))
        return std::nullopt;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges;
    for (const MP4BoxHeader& b : boxes) {
        const bool whole = b.is(kMoov) || b.is(kFree) || b.is(kSkip);
        const std::uint64_t end = std::min(size, whole ? b.end() : b.offset + std::min<std::uint64_t>(16, b.size));
        if (!ranges.empty() && ranges.back().first + ranges.back().second == b.offset)
            ranges.back().second = end - ranges.back().first;
        else
            ranges.emplace_back(b.offset, end - b.offset);
    }
    return ranges;
}
} // namespace

MP4TailSnapshot MP4TailSnapshot::take(const QString& path, const QString& spillFolder)
{
    MP4TailSnapshot snapshot;
    const MP4File file(path, MP4File::Access::read);
    snapshot.length_ = file.size();
    struct stat st{};
    if (::fstat(file.fd(), &st) == 0)
        snapshot.identity_ = {std::uint64_t(st.st_dev), std::uint64_t(st.st_ino)};
    const QString spill = spillFolder + QStringLiteral("/") + QUuid::createUuid().toString(QUuid::WithoutBraces)
        + QStringLiteral(".snapshot");

    const auto ranges = rangesOf(file, snapshot.length_);
    if (!ranges) {
        QFile source(path);
        if (!source.copy(spill))
            spillFailed(path, source.errorString());
        snapshot.fullCopy_ = true;
        snapshot.spillPath_ = spill;
        snapshot.savedBytes_ = snapshot.length_;
        Log::write(QStringLiteral("[Snapshot] no moov found in '%1' — backed up by a full copy").arg(QFileInfo(path).fileName()));
        return snapshot;
    }

    std::uint64_t total = 0;
    for (const auto& r : *ranges)
        total += r.second;
    snapshot.savedBytes_ = total;
    if (total <= memoryLimit) {
        for (const auto& r : *ranges) {
            QByteArray bytes = file.readAt(r.first, r.second);
            if (std::uint64_t(bytes.size()) != r.second)
                spillFailed(path, QStringLiteral("the file ended early"));
            snapshot.ranges_.emplace_back(r.first, std::move(bytes));
        }
        return snapshot;
    }
    MP4File out = MP4File::createNew(spill, 0600);
    snapshot.spillPath_ = spill;
    std::uint64_t at = 0;
    for (const auto& r : *ranges) {
        for (std::uint64_t done = 0; done < r.second;) {
            const std::uint64_t want = std::min<std::uint64_t>(r.second - done, 4194304);
            const QByteArray bytes = file.readAt(r.first + done, want);
            if (std::uint64_t(bytes.size()) != want)
                spillFailed(path, QStringLiteral("the file ended early"));
            out.writeAt(at, bytes);
            at += want;
            done += want;
        }
        snapshot.spilledRanges_.push_back(r);
    }
    out.close();
    return snapshot;
}

void MP4TailSnapshot::restore(const QString& path) const
{
    if (fullCopy_) {
        QFile::remove(path);
        QFile copy(spillPath_);
        if (!copy.copy(path))
            spillFailed(path, copy.errorString());
        return;
    }
    MP4File file(path, MP4File::Access::update);
    struct stat st{};
    if (::fstat(file.fd(), &st) == 0 && identity_ != std::pair{std::uint64_t(st.st_dev), std::uint64_t(st.st_ino)})
        spillFailed(path, QStringLiteral("it was replaced by a new copy since the backup, which no longer fits it"));
    for (const auto& r : ranges_)
        file.writeAt(r.first, r.second);
    if (!spilledRanges_.empty()) {
        const MP4File spill(spillPath_, MP4File::Access::read);
        std::uint64_t at = 0;
        for (const auto& r : spilledRanges_) {
            for (std::uint64_t done = 0; done < r.second;) {
                const std::uint64_t want = std::min<std::uint64_t>(r.second - done, 4194304);
                const QByteArray bytes = spill.readAt(at, want);
                if (std::uint64_t(bytes.size()) != want)
                    spillFailed(path, QStringLiteral("its backup is incomplete"));
                file.writeAt(r.first + done, bytes);
                at += want;
                done += want;
            }
        }
    }
    file.truncate(length_);
    file.sync();
}

} // namespace folivox
