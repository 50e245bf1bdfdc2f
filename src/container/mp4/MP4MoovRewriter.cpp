#include "container/mp4/MP4MoovRewriter.h"

#include "container/io/FaultInjection.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4ChunkOffsets.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4FreeZone.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QElapsedTimer>

#include <algorithm>

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kMdat = MP4Bytes::fourCC("mdat");
constexpr std::uint32_t kMoof = MP4Bytes::fourCC("moof");
constexpr std::uint64_t kMax32 = 0xFFFFFFFFu;

QString reasonText(const char* key, const char* text, const QStringList& args = {})
{
    return L10n::format(L10n::text(key, text), args);
}

MP4MoovRewriter::UnsupportedLayout moovMoved(std::uint64_t offset)
{
    return MP4MoovRewriter::UnsupportedLayout(reasonText(
        "container.rewrite.moovMoved", "moov header at %@ no longer matches the loaded buffer", {QString::number(offset)}));
}

// The new copy ahead of the old moov: it starts where the dead space does,
// and the free box behind it must start before anything the old version
// still reads, so that it can be written (hidden) before the switch.
bool placeAhead(MP4MoovRewriter::Plan& p, std::uint64_t unitSize)
{
    const std::uint64_t limit = p.writableLeadEnd;
    if (p.zoneStart >= limit || limit - p.zoneStart > kMax32)
        return false;
    const std::uint64_t unitEnd = p.zoneStart + unitSize;
    if (unitEnd >= limit || unitEnd + std::uint64_t(MP4MoovRewriter::freeHeader(p.zoneEnd - unitEnd).size()) > limit)
        return false;
    p.mode = MP4MoovRewriter::Mode::front;
    p.unitOffset = p.zoneStart;
    p.switchOffset = p.zoneStart;
    p.wrapperEnd = 0;
    // The free box behind the copy reaches the end of the file: cut it off.
    p.finalSize = p.zoneReachesEnd ? unitEnd : p.fileSize;
    return true;
}

// The new copy behind the old moov, inside a free box that starts right
// behind it; the switch turns everything from the start of the dead space up
// to the copy into one free box.
bool placeBehind(MP4MoovRewriter::Plan& p, std::uint64_t unitSize)
{
    const std::uint64_t o = p.buffer.fileOffset;
    const std::uint64_t oldEnd = o + p.buffer.originalSize;
    const std::uint64_t sw = p.zoneStart < o ? p.zoneStart : o;
    const std::uint64_t unit = oldEnd + 8;
    const std::uint64_t unitEnd = unit + unitSize;
    std::uint64_t wrapperEnd = std::max(p.zoneEnd, unitEnd);
    if (unitEnd > p.zoneEnd && !p.zoneReachesEnd)
        return false;
    if (unitEnd < wrapperEnd && wrapperEnd - unitEnd < 8) {
        // Too little left over for a free box: at the end of the file, grow
        // by a few bytes and cut them off afterwards; elsewhere it can't be.
        if (!p.zoneReachesEnd)
            return false;
        wrapperEnd = unitEnd + 8;
    }
    if (unit - sw > kMax32 || wrapperEnd - oldEnd > kMax32 || wrapperEnd - unitEnd > kMax32)
        return false;
    p.unitOffset = unit;
    p.switchOffset = sw;
    p.wrapperEnd = wrapperEnd;
    p.finalSize = p.zoneReachesEnd ? unitEnd : p.fileSize;
    p.mode = p.finalSize > p.fileSize ? MP4MoovRewriter::Mode::append : MP4MoovRewriter::Mode::behind;
    return true;
}
} // namespace

QString MP4MoovRewriter::modeText(Mode mode)
{
    switch (mode) {
    case Mode::front:
        return QStringLiteral("front");
    case Mode::behind:
        return QStringLiteral("behind");
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
    if (n <= kMax32)
        return MP4Bytes::be32Bytes(std::uint32_t(n)) + QByteArrayLiteral("free");
    return MP4Bytes::be32Bytes(1) + QByteArrayLiteral("free") + MP4Bytes::be64Bytes(n);
}

MP4MoovRewriter::Plan MP4MoovRewriter::plan(MP4MoovReader::MoovBuffer buffer, const QString& path, const QByteArray& media,
                                            std::uint64_t mediaBase)
{
    const MP4File file(path, MP4File::Access::read);
    // Media boxes the new moov no longer uses (a replaced chapter track's
    // samples) are dead once the switch is made. Fragmented files point into
    // their media otherwise, so there none counts as unused.
    const QList<MP4BoxHeader> boxes = MP4FreeZone::walk(file, file.size());
    const bool fragmented = std::any_of(boxes.begin(), boxes.end(), [](const MP4BoxHeader& h) { return h.is(kMoof); });
    const bool pointsAnywhere = MP4ChunkOffsets::findInRange(buffer.data, 0, UINT64_MAX).has_value();
    const QByteArray* edited = &buffer.data;
    const auto retired = [&](const MP4BoxHeader& h) {
        return !fragmented && pointsAnywhere && h.is(kMdat) && !MP4ChunkOffsets::findInRange(*edited, h.offset, h.end());
    };
    // The switch is one 8-byte header spanning the dead space ahead, the old
    // moov and the new copy's header: dead space farther ahead stays as it
    // is, or the file would be written anew for want of room.
    const auto zone = MP4FreeZone::find(file, buffer.fileOffset, buffer.originalSize, retired,
                                        kMax32 - buffer.originalSize - 8);
    if (!zone)
        throw moovMoved(buffer.fileOffset);

    // Media that the edited moov still uses must not lie in the space about
    // to be reused. New media (at mediaBase, the end of the file) is not
    // there yet.
    if (const auto hit = MP4ChunkOffsets::findInRange(buffer.data, zone->start, zone->end))
        throw UnsupportedLayout(reasonText("container.rewrite.chunkInRegion", "chunk offset %@ points into the moov/free region",
                                           {QString::number(*hit)}));

    Plan p;
    p.buffer = std::move(buffer);
    edited = &p.buffer.data;
    p.media = media;
    p.fileSize = zone->fileSize;
    p.zoneStart = zone->start;
    p.zoneEnd = zone->end;
    p.writableLeadEnd = zone->writableLeadEnd;
    p.zoneReachesEnd = zone->reachesEnd;
    p.leadIsOneFreeBox = zone->leadIsOneFreeBox;
    p.tailIsOneFreeBox = zone->tailIsOneFreeBox;
    p.moovOpenEnded = zone->moovOpenEnded;
    const std::uint64_t unitSize = std::uint64_t(p.media.size() + p.buffer.data.size());
    if (!placeAhead(p, unitSize) && !placeBehind(p, unitSize))
        throw UnsupportedLayout(reasonText("container.rewrite.noRoom",
                                           "no free space around the moov holds a new copy of %@ bytes, and it does not "
                                           "reach the end of the file",
                                           {QString::number(unitSize)}));

    if (!p.media.isEmpty()) {
        const auto result = MP4ChunkOffsets::shift(p.buffer.data, 0, p.buffer.data.size(),
                                                   std::int64_t(p.unitOffset) - std::int64_t(mediaBase), mediaBase);
        if (result != MP4ChunkOffsets::ShiftResult::shifted)
            throw UnsupportedLayout(reasonText("container.rewrite.mediaOffsets", "the new media's chunk offsets do not fit at %@",
                                               {QString::number(p.unitOffset)}));
    }

    // Unused media elsewhere becomes free space after the switch.
    for (const MP4BoxHeader& h : zone->topLevel)
        if ((h.end() <= p.zoneStart || h.offset >= p.zoneEnd) && h.end() <= p.finalSize && retired(h))
            p.deadMedia.append(h.offset);
    return p;
}

void MP4MoovRewriter::rewrite(const Plan& plan, const QString& path)
{
    QElapsedTimer timer;
    timer.start();
    const MP4MoovReader::MoovBuffer& b = plan.buffer;
    const std::uint64_t o = b.fileOffset;
    const std::uint64_t oldEnd = o + b.originalSize;

    MP4File file(path, MP4File::Access::update);
    const std::uint64_t actual = file.size();
    if (actual != plan.fileSize)
        throw UnsupportedLayout(reasonText("container.rewrite.sizeChanged", "file size changed between plan (%@) and write (%@)",
                                           {QString::number(plan.fileSize), QString::number(actual)}));
    const QByteArray head = file.readAt(o, 8);
    if (head.size() != 8 || MP4Bytes::be32(head.constData() + 4) != kMoov
        || (MP4Bytes::be32(head.constData()) != b.originalSize && !(plan.moovOpenEnded && MP4Bytes::be32(head.constData()) == 0)))
        throw moovMoved(o);

    // Each step is durable before the next one starts.
    const auto done = [&](const char* point) {
        file.sync();
        FaultInjection::reach(point);
    };
    const QByteArray unit = plan.media + b.data;
    const std::uint64_t unitEnd = plan.unitEnd();

    if (plan.mode == Mode::front) {
        // The dead space ahead becomes one free box; the copy goes inside it,
        // behind its header, followed by the header of the free box that
        // will cover the old moov and everything up to the end of the space.
        if (!plan.leadIsOneFreeBox) {
            file.writeAt(plan.zoneStart, freeHeader(plan.writableLeadEnd - plan.zoneStart));
            done("rewrite.leadMerged");
        }
        file.writeAt(plan.unitOffset + 8, unit.constData() + 8, std::uint64_t(unit.size()) - 8);
        file.writeAt(unitEnd, freeHeader(plan.zoneEnd - unitEnd));
        done("rewrite.copyWritten");
        // The switch: the free box's header becomes the copy's first header.
        file.writeAt(plan.unitOffset, unit.constData(), 8);
        done("rewrite.switched");
    } else {
        if (plan.moovOpenEnded) {
            // A moov running to the end of the file would take in what is
            // written behind it: give it its real size first.
            file.writeAt(o, MP4Bytes::be32Bytes(std::uint32_t(b.originalSize)));
            done("rewrite.pinned");
        }
        if (plan.wrapperEnd > plan.fileSize) {
            // The file grows by zeros first: a reader takes them for one
            // empty box running to the end of the file.
            file.truncate(plan.wrapperEnd);
            done("rewrite.grown");
        }
        if (!(plan.tailIsOneFreeBox && plan.wrapperEnd == plan.zoneEnd && plan.zoneEnd > oldEnd)) {
            file.writeAt(oldEnd, freeHeader(plan.wrapperEnd - oldEnd));
            done("rewrite.wrapped");
        }
        file.writeAt(plan.unitOffset, unit);
        if (plan.wrapperEnd > unitEnd)
            file.writeAt(unitEnd, freeHeader(plan.wrapperEnd - unitEnd));
        done("rewrite.copyWritten");
        // The switch: one free box from the start of the dead space (or the
        // old moov) up to the copy, which is thereby the next box. Whatever
        // box starts there (free space, unused media, the old moov) is
        // covered whole.
        file.writeAt(plan.switchOffset, freeHeader(plan.unitOffset - plan.switchOffset));
        done("rewrite.switched");
    }

    // Clean-up, out of every reader's sight: a free tail at the end of the
    // file is cut off, the old moov's bytes are zeroed, and media no longer
    // used becomes free space.
    if (plan.finalSize < file.size()) {
        file.truncate(plan.finalSize);
        FaultInjection::reach("rewrite.trimmed");
    }
    const std::uint64_t zeroFrom = plan.mode != Mode::front && plan.switchOffset == o ? o + 8 : o;
    const std::uint64_t zeroTo = std::min(oldEnd, plan.finalSize);
    if (zeroFrom < zeroTo) {
        file.zeroFill(zeroFrom, zeroTo - zeroFrom);
        FaultInjection::reach("rewrite.zeroed");
    }
    for (const std::uint64_t offset : plan.deadMedia)
        file.writeAt(offset + 4, QByteArrayLiteral("free"));
    done("rewrite.cleaned");
    file.close();

    Log::write(QStringLiteral("[AtomsPerf] rewrite mode=%1 moovOld=%2 moovNew=%3 free=%4 ms=%5")
                   .arg(modeText(plan.mode))
                   .arg(b.originalSize)
                   .arg(b.data.size())
                   .arg(plan.zoneEnd - plan.zoneStart - b.originalSize)
                   .arg(timer.elapsed()));
}

} // namespace folivox
