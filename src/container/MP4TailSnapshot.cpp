#include "container/MP4TailSnapshot.h"

#include "container/MP4BoxHeader.h"
#include "container/MP4Bytes.h"
#include "container/MP4File.h"
#include "platform/Error.h"
#include "platform/Log.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <optional>

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kFree = MP4Bytes::fourCC("free");
constexpr std::uint32_t kSkip = MP4Bytes::fourCC("skip");

[[noreturn]] void spillFailed(const QString& path, const QString& why)
{
    throw GenericError(QStringLiteral("Cannot back up “%1”: %2").arg(QFileInfo(path).fileName(), why));
}

// The ranges to save, or nothing when the file has no moov to find.
std::optional<std::vector<std::pair<std::uint64_t, std::uint64_t>>> rangesOf(const MP4File& file, std::uint64_t size)
{
    QList<MP4BoxHeader> boxes;
    try {
        boxes = MP4BoxHeader::listTopLevel(file, size);
    } catch (const Error&) {
        return std::nullopt;
    }
    qsizetype moovAt = -1;
    for (qsizetype i = 0; i < boxes.size(); ++i)
        if (boxes.at(i).is(kMoov)) {
            moovAt = i;
            break;
        }
    if (moovAt < 0)
        return std::nullopt;
    std::uint64_t end = boxes.at(moovAt).end();
    for (qsizetype i = moovAt + 1; i < boxes.size() && (boxes.at(i).is(kFree) || boxes.at(i).is(kSkip)); ++i)
        end = boxes.at(i).end();
    end = std::min(end, size);
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges{{boxes.at(moovAt).offset, end - boxes.at(moovAt).offset}};
    const MP4BoxHeader& last = boxes.last();
    if (last.offset >= end)
        ranges.emplace_back(last.offset, std::min<std::uint64_t>(16, size - last.offset));
    return ranges;
}
} // namespace

MP4TailSnapshot MP4TailSnapshot::take(const QString& path, const QString& spillFolder)
{
    MP4TailSnapshot snapshot;
    const MP4File file(path, MP4File::Access::read);
    snapshot.length_ = file.size();
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
