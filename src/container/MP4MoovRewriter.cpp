#include "container/MP4MoovRewriter.h"

#include "container/FaultInjection.h"
#include "container/MP4BoxHeader.h"
#include "container/MP4Bytes.h"
#include "container/MP4ChunkOffsets.h"
#include "container/MP4File.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QElapsedTimer>

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kFree = MP4Bytes::fourCC("free");
constexpr std::uint32_t kSkip = MP4Bytes::fourCC("skip");

QString reasonText(const char* key, const char* text, const QStringList& args = {})
{
    return L10n::format(L10n::text(key, text), args);
}
} // namespace

QString MP4MoovRewriter::modeText(Mode mode)
{
    switch (mode) {
    case Mode::last:
        return QStringLiteral("last");
    case Mode::inplace:
        return QStringLiteral("inplace");
    case Mode::append:
        return QStringLiteral("append");
    }
    return {};
}

QString MP4MoovRewriter::UnsupportedLayout::description() const
{
    return L10n::format(L10n::text("container.rewrite.unsupportedLayout", "moov-only rewrite not possible: %@"), {reason_});
}

QByteArray MP4MoovRewriter::freeHeader(std::uint64_t n)
{
    if (n <= 0xFFFFFFFFu)
        return MP4Bytes::be32Bytes(std::uint32_t(n)) + MP4Bytes::fourCCBytes(kFree);
    return MP4Bytes::be32Bytes(1) + MP4Bytes::fourCCBytes(kFree) + MP4Bytes::be64Bytes(n);
}

MP4MoovRewriter::Plan MP4MoovRewriter::plan(MP4MoovReader::MoovBuffer buffer, const QString& path)
{
    Plan p;
    if (buffer.isLastBox) {
        p.buffer = std::move(buffer);
        p.mode = Mode::last;
        return p;
    }

    const MP4File file(path, MP4File::Access::read);
    const std::uint64_t fileSize = file.size();

    // The moov must still stand where it was read, with the size it had.
    bool matches = false;
    try {
        const MP4BoxHeader h = MP4BoxHeader::readAt(file, buffer.fileOffset, fileSize);
        matches = h.is(kMoov) && h.size == buffer.originalSize;
    } catch (const MP4BoxHeader::ParseError&) {
        matches = false;
    }
    if (!matches)
        throw UnsupportedLayout(reasonText("container.rewrite.moovMoved", "moov header at %@ no longer matches the loaded buffer",
                                           {QString::number(buffer.fileOffset)}));

    // Walk the boxes behind the moov: sum the free/skip run directly behind
    // it, and remember the last box for the append case.
    std::uint64_t trailingFree = 0;
    bool runUnbroken = true;
    bool cleanEnd = false;
    std::optional<MP4BoxHeader> lastBox;
    std::uint64_t pos = buffer.fileOffset + buffer.originalSize;
    for (;;) {
        if (pos == fileSize) {
            cleanEnd = true;
            break;
        }
        if (pos > fileSize || fileSize - pos < 8)
            break;
        MP4BoxHeader h;
        try {
            h = MP4BoxHeader::readAt(file, pos, fileSize);
        } catch (const MP4BoxHeader::ParseError&) {
            break;
        }
        if (runUnbroken && (h.is(kFree) || h.is(kSkip)))
            trailingFree += h.size;
        else
            runUnbroken = false;
        lastBox = h;
        pos += h.size;
    }

    const std::uint64_t capacity = buffer.originalSize + trailingFree;
    const std::uint64_t newSize = std::uint64_t(buffer.data.size());
    Mode mode = Mode::append;
    if (capacity >= newSize) {
        const std::uint64_t remainder = capacity - newSize;
        // 1 to 7 spare bytes can't hold a free header.
        if (remainder == 0 || remainder >= 8)
            mode = Mode::inplace;
    }

    if (mode == Mode::append) {
        if (!cleanEnd)
            throw UnsupportedLayout(reasonText("container.rewrite.unclean",
                                               "top-level boxes after moov do not parse cleanly to EOF"));
        if (lastBox && lastBox->extendsToEnd) {
            if (lastBox->size > 0xFFFFFFFFu)
                throw UnsupportedLayout(reasonText("container.rewrite.openEnded",
                                                   "last box '%@' is open-ended and larger than 4 GiB", {lastBox->type}));
            p.openEndedLastBoxOffset = lastBox->offset;
        }
    }

    // Media inside the region about to be overwritten would be destroyed.
    if (const auto hit = MP4ChunkOffsets::findInRange(buffer.data, buffer.fileOffset, buffer.fileOffset + capacity))
        throw UnsupportedLayout(reasonText("container.rewrite.chunkInRegion", "chunk offset %@ points into the moov/free region",
                                           {QString::number(*hit)}));

    p.buffer = std::move(buffer);
    p.mode = mode;
    p.trailingFree = trailingFree;
    p.fileSize = fileSize;
    return p;
}

void MP4MoovRewriter::rewrite(const Plan& plan, const QString& path)
{
    QElapsedTimer timer;
    timer.start();
    const MP4MoovReader::MoovBuffer& b = plan.buffer;
    const std::uint64_t newSize = std::uint64_t(b.data.size());

    if (plan.mode == Mode::last) {
        if (!b.isLastBox)
            throw MP4MoovReader::Error(MP4MoovReader::Error::Kind::unsupportedLayout);
        MP4File file(path, MP4File::Access::write);
        file.writeAt(b.fileOffset, b.data);
        file.truncate(b.fileOffset + newSize);
        file.close();
    } else {
        MP4File file(path, MP4File::Access::update);
        const std::uint64_t actual = file.size();
        if (actual != plan.fileSize)
            throw UnsupportedLayout(reasonText("container.rewrite.sizeChanged", "file size changed between plan (%@) and write (%@)",
                                               {QString::number(plan.fileSize), QString::number(actual)}));
        const std::uint64_t oldEnd = b.fileOffset + b.originalSize;

        if (plan.mode == Mode::inplace) {
            const std::uint64_t rem = plan.trailingFree + b.originalSize - newSize;
            QByteArray out = b.data;
            if (rem != 0)
                out += freeHeader(rem);
            file.writeAt(b.fileOffset, out);
            FaultInjection::reach("rewrite.inplace.written");
            const std::uint64_t writtenEnd = b.fileOffset + std::uint64_t(out.size());
            // Only the old moov's bytes need zeroing; the old free bodies
            // already lie inside the new free box.
            if (writtenEnd < oldEnd)
                file.zeroFill(writtenEnd, oldEnd - writtenEnd);
            file.sync();
        } else {
            // Each step is durable before the next, so a crash at any point
            // leaves a file whose first moov is a complete one.
            if (plan.openEndedLastBoxOffset) {
                const std::uint64_t off = *plan.openEndedLastBoxOffset;
                const QByteArray size32 = MP4Bytes::be32Bytes(std::uint32_t(plan.fileSize - off));
                file.writeAt(off, size32);
                file.sync();
                FaultInjection::reach("rewrite.append.closedOpenEndedBox");
            }
            file.writeAt(plan.fileSize, b.data);
            file.sync();
            FaultInjection::reach("rewrite.append.newMoovWritten");
            const QByteArray header = freeHeader(b.originalSize + plan.trailingFree);
            file.writeAt(b.fileOffset, header);
            file.sync();
            FaultInjection::reach("rewrite.append.oldMoovFreed");
            const std::uint64_t headerEnd = b.fileOffset + std::uint64_t(header.size());
            if (headerEnd < oldEnd)
                file.zeroFill(headerEnd, oldEnd - headerEnd);
            file.sync();
            FaultInjection::reach("rewrite.append.zeroed");
        }
        file.close();
    }

    Log::write(QStringLiteral("[AtomsPerf] rewrite mode=%1 moovOld=%2 moovNew=%3 free=%4 ms=%5")
                   .arg(modeText(plan.mode))
                   .arg(b.originalSize)
                   .arg(newSize)
                   .arg(plan.trailingFree)
                   .arg(timer.elapsed()));
}

} // namespace folivox
