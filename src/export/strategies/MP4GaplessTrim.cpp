#include "export/strategies/MP4GaplessTrim.h"

#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4MoovEditor.h"
#include "container/mp4/MP4MoovReader.h"
#include "platform/Error.h"

#include <QFileInfo>
#include <QStringList>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

namespace folivox {

namespace {

constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

[[noreturn]] void fail(const QString& path, const QString& why)
{
    throw GenericError(QStringLiteral("Cannot set the gapless timing of ") + QFileInfo(path).fileName()
                       + QStringLiteral(": ") + why);
}

MP4BoxTree::Node* audioTrak(MP4BoxTree::Node& moov)
{
    for (MP4BoxTree::Node& trak : moov.children) {
        if (trak.type != fc("trak"))
            continue;
        MP4BoxTree::Node* hdlr = MP4BoxTree::find(trak, {fc("mdia"), fc("hdlr")});
        if (hdlr && hdlr->payload.size() >= 12 && MP4Bytes::be32(hdlr->payload.constData() + 8) == fc("soun"))
            return &trak;
    }
    return nullptr;
}

struct SttsEntry {
    std::uint32_t count;
    std::uint32_t delta;
};

std::vector<SttsEntry> readStts(const QByteArray& p)
{
    std::vector<SttsEntry> entries;
    if (p.size() < 8)
        return entries;
    const std::uint32_t n = MP4Bytes::be32(p.constData() + 4);
    for (std::uint32_t i = 0; i < n && 8 + 8 * qsizetype(i) + 8 <= p.size(); ++i)
        entries.push_back({MP4Bytes::be32(p.constData() + 8 + 8 * i), MP4Bytes::be32(p.constData() + 12 + 8 * i)});
    return entries;
}

QByteArray writeStts(const std::vector<SttsEntry>& entries)
{
    QByteArray p = MP4Bytes::be32Bytes(0) + MP4Bytes::be32Bytes(std::uint32_t(entries.size()));
    for (const SttsEntry& e : entries)
        p += MP4Bytes::be32Bytes(e.count) + MP4Bytes::be32Bytes(e.delta);
    return p;
}

// Timescale and duration of an mvhd/mdhd payload (version 0 or 1).
std::uint32_t headerTimescale(const QByteArray& p)
{
    return p.at(0) == 1 ? MP4Bytes::be32(p.constData() + 20) : MP4Bytes::be32(p.constData() + 12);
}

void setHeaderDuration(QByteArray& p, std::uint64_t duration, int offset0, int offset1)
{
    if (p.at(0) == 1) {
        MP4Bytes::put64(p.data() + offset1, duration);
    } else {
        MP4Bytes::put32(p.data() + offset0, duration > std::numeric_limits<std::uint32_t>::max()
                                                ? std::numeric_limits<std::uint32_t>::max()
                                                : std::uint32_t(duration));
    }
}

QByteArray elstPayload(std::uint64_t segmentDuration, std::int64_t mediaTime)
{
    const bool wide = segmentDuration > std::numeric_limits<std::uint32_t>::max();
    QByteArray p = MP4Bytes::be32Bytes(wide ? 0x01000000u : 0u) + MP4Bytes::be32Bytes(1);
    if (wide)
        p += MP4Bytes::be64Bytes(segmentDuration) + MP4Bytes::be64Bytes(std::uint64_t(mediaTime));
    else
        p += MP4Bytes::be32Bytes(std::uint32_t(segmentDuration)) + MP4Bytes::be32Bytes(std::uint32_t(mediaTime));
    p += MP4Bytes::be32Bytes(0x00010000u); // media rate 1.0
    return p;
}

MP4BoxTree::Node freeform(const QString& name, const QString& text)
{
    MP4BoxTree::Node item = MP4BoxTree::Node::container(fc("----"));
    item.append(MP4BoxTree::Node::leaf(fc("mean"), MP4Bytes::be32Bytes(0) + QByteArray("com.apple.iTunes")));
    item.append(MP4BoxTree::Node::leaf(fc("name"), MP4Bytes::be32Bytes(0) + name.toUtf8()));
    item.append(MP4BoxTree::Node::leaf(fc("data"), MP4Bytes::be32Bytes(1) + MP4Bytes::be32Bytes(0) + text.toUtf8()));
    return item;
}

bool isSmpb(const MP4BoxTree::Node& node)
{
    if (node.type != fc("----"))
        return false;
    const MP4BoxTree::Node* name = node.child(fc("name"));
    return name && name->payload.mid(4) == "iTunSMPB";
}

// The sample count of an iTunSMPB item in the moov's ilst, if there is one.
std::optional<std::int64_t> smpbSamples(MP4BoxTree::Node& moov)
{
    MP4BoxTree::Node* ilst = MP4BoxTree::find(moov, {fc("udta"), fc("meta"), fc("ilst")});
    if (!ilst)
        return std::nullopt;
    for (const MP4BoxTree::Node& item : ilst->children) {
        if (!isSmpb(item))
            continue;
        const MP4BoxTree::Node* data = item.child(fc("data"));
        if (!data || data->payload.size() <= 8)
            return std::nullopt;
        const QStringList fields = QString::fromLatin1(data->payload.mid(8)).split(u' ', Qt::SkipEmptyParts);
        bool ok = false;
        const std::int64_t samples = fields.size() >= 4 ? fields[3].toLongLong(&ok, 16) : 0;
        return ok && samples > 0 ? std::optional<std::int64_t>(samples) : std::nullopt;
    }
    return std::nullopt;
}

// Duration of the first edit that is not empty, in the movie's clock.
std::optional<std::uint64_t> firstMediaEdit(const MP4BoxTree::Node& trak)
{
    const MP4BoxTree::Node* edts = trak.child(fc("edts"));
    const MP4BoxTree::Node* elst = edts ? edts->child(fc("elst")) : nullptr;
    if (!elst || elst->payload.size() < 8)
        return std::nullopt;
    const QByteArray& p = elst->payload;
    const bool wide = p.at(0) == 1;
    const std::uint32_t n = MP4Bytes::be32(p.constData() + 4);
    for (std::uint32_t i = 0; i < n; ++i) {
        const int at = 8 + int(i) * (wide ? 20 : 12);
        if (at + (wide ? 20 : 12) > p.size())
            break;
        const std::uint64_t duration = wide ? MP4Bytes::be64(p.constData() + at) : MP4Bytes::be32(p.constData() + at);
        const std::int64_t mediaTime = wide ? std::int64_t(MP4Bytes::be64(p.constData() + at + 8))
                                            : std::int32_t(MP4Bytes::be32(p.constData() + at + 4));
        if (mediaTime >= 0)
            return duration;
    }
    return std::nullopt;
}

void setHeaderTimescale(QByteArray& p, std::uint32_t scale)
{
    MP4Bytes::put32(p.data() + (p.at(0) == 1 ? 20 : 12), scale);
}

} // namespace

MP4GaplessTrim::JoinedFile MP4GaplessTrim::joinedFile(const QString& path)
{
    const Layout layout = read(path);
    MP4MoovReader::MoovBuffer buffer = MP4MoovReader::read(path);
    MP4BoxTree::Node moov = MP4BoxTree::parse(buffer.data);
    MP4BoxTree::Node* trak = audioTrak(moov);
    const MP4BoxTree::Node* stts = trak ? MP4BoxTree::find(*trak, {fc("mdia"), fc("minf"), fc("stbl"), fc("stts")}) : nullptr;
    const MP4BoxTree::Node* mvhd = moov.child(fc("mvhd"));
    if (!trak || !stts || !mvhd)
        fail(path, QStringLiteral("no audio track"));
    JoinedFile file;
    file.packets = layout.packets;
    file.frameSize = layout.framing.frameSize;
    file.priming = layout.framing.priming;
    const std::int64_t held = layout.mediaSamples - file.priming;
    const auto entries = readStts(stts->payload);
    const bool lastCut = !entries.empty() && entries.back().delta < std::uint32_t(file.frameSize);
    const std::uint32_t movieScale = headerTimescale(mvhd->payload);
    if (const auto counted = smpbSamples(moov)) {
        file.samples = *counted;
    } else if (lastCut) {
        file.samples = held;
    } else if (const auto edit = firstMediaEdit(*trak); edit && movieScale > 0) {
        file.samples = std::llround(double(*edit) * layout.timescale / movieScale);
    } else {
        file.samples = held;
    }
    file.samples = std::clamp<std::int64_t>(file.samples, 0, std::max<std::int64_t>(held, 0));
    return file;
}

std::vector<std::int64_t> MP4GaplessTrim::applyJoin(const QString& path, const std::vector<JoinedFile>& files)
{
    std::vector<std::int64_t> starts;
    MP4MoovEditor::edit(path, [&](MP4BoxTree::Node& moov) {
        MP4BoxTree::Node* trak = audioTrak(moov);
        MP4BoxTree::Node* mvhd = moov.child(fc("mvhd"));
        MP4BoxTree::Node* tkhd = trak ? trak->child(fc("tkhd")) : nullptr;
        MP4BoxTree::Node* mdhd = trak ? MP4BoxTree::find(*trak, {fc("mdia"), fc("mdhd")}) : nullptr;
        MP4BoxTree::Node* stts = trak ? MP4BoxTree::find(*trak, {fc("mdia"), fc("minf"), fc("stbl"), fc("stts")}) : nullptr;
        if (!mvhd || !tkhd || !mdhd || !stts)
            fail(path, QStringLiteral("no audio track"));
        const auto entries = readStts(stts->payload);
        std::int64_t packets = 0;
        for (const SttsEntry& e : entries)
            packets += e.count;
        const int frame = entries.empty() ? 0 : int(entries.front().delta);
        std::int64_t expected = 0;
        for (const JoinedFile& f : files) {
            if (f.frameSize != frame)
                fail(path, QStringLiteral("its packets are %1 samples long, a joined file's %2").arg(frame).arg(f.frameSize));
            expected += f.packets;
        }
        if (packets != expected)
            fail(path, QStringLiteral("it holds %1 packets, the joined files %2").arg(packets).arg(expected));

        // The movie's clock becomes the sample clock: the only track is the
        // audio (the join maps nothing else), so no other duration moves.
        // Not where the book's length would overflow a 32-bit header field
        // (27 hours at 44.1 kHz); its edits are then exact to the
        // millisecond of the movie's own clock, rounded without drift.
        const std::uint32_t mediaScale = headerTimescale(mdhd->payload);
        if (mediaScale == 0)
            fail(path, QStringLiteral("no timescale"));
        bool onlyAudio = true;
        for (const MP4BoxTree::Node& child : moov.children)
            onlyAudio = onlyAudio && (child.type != fc("trak") || &child == trak);
        std::int64_t totalSamples = 0;
        for (const JoinedFile& f : files)
            totalSamples += f.samples;
        const bool headersHoldIt = totalSamples < std::int64_t(std::numeric_limits<std::uint32_t>::max())
            || (mvhd->payload.at(0) == 1 && tkhd->payload.at(0) == 1);
        if (onlyAudio && headersHoldIt)
            setHeaderTimescale(mvhd->payload, mediaScale);
        const std::uint32_t movieScale = headerTimescale(mvhd->payload);
        auto inMovie = [&](std::int64_t samples) {
            return std::uint64_t(std::llround(double(samples) * movieScale / mediaScale));
        };

        QByteArray edits;
        std::int64_t mediaAt = 0;
        std::int64_t presented = 0;
        bool wide = false;
        for (const JoinedFile& f : files) {
            const std::uint64_t duration = inMovie(presented + f.samples) - inMovie(presented);
            wide = wide || duration > std::numeric_limits<std::uint32_t>::max()
                || mediaAt + f.priming > std::numeric_limits<std::int32_t>::max();
            starts.push_back(presented);
            presented += f.samples;
            mediaAt += f.packets * frame;
        }
        mediaAt = 0;
        presented = 0;
        for (const JoinedFile& f : files) {
            const std::uint64_t duration = inMovie(presented + f.samples) - inMovie(presented);
            const std::int64_t mediaTime = mediaAt + f.priming;
            if (wide)
                edits += MP4Bytes::be64Bytes(duration) + MP4Bytes::be64Bytes(std::uint64_t(mediaTime));
            else
                edits += MP4Bytes::be32Bytes(std::uint32_t(duration)) + MP4Bytes::be32Bytes(std::uint32_t(mediaTime));
            edits += MP4Bytes::be32Bytes(0x00010000u); // media rate 1.0
            presented += f.samples;
            mediaAt += f.packets * frame;
        }
        const QByteArray elst = MP4Bytes::be32Bytes(wide ? 0x01000000u : 0u)
            + MP4Bytes::be32Bytes(std::uint32_t(files.size())) + edits;
        setHeaderDuration(mvhd->payload, inMovie(presented), 16, 24);
        setHeaderDuration(tkhd->payload, inMovie(presented), 20, 28);

        MP4BoxTree::Node& edts = trak->ensureChild(fc("edts"));
        edts.children.clear();
        edts.append(MP4BoxTree::Node::leaf(fc("elst"), elst));
        for (std::size_t i = 0; i < trak->children.size(); ++i) {
            if (trak->children[i].type == fc("edts") && i != 1 && trak->children.size() > 1) {
                MP4BoxTree::Node moved = std::move(trak->children[i]);
                trak->children.erase(trak->children.begin() + std::ptrdiff_t(i));
                trak->children.insert(trak->children.begin() + 1, std::move(moved));
                break;
            }
        }
        if (MP4BoxTree::Node* ilst = MP4BoxTree::find(moov, {fc("udta"), fc("meta"), fc("ilst")}))
            ilst->children.erase(std::remove_if(ilst->children.begin(), ilst->children.end(), isSmpb),
                                 ilst->children.end());
        return true;
    });
    return starts;
}

QString MP4GaplessTrim::smpbText(std::int64_t priming, std::int64_t padding, std::int64_t samples)
{
    return QString::asprintf(" 00000000 %08X %08X %016llX 00000000 00000000 00000000 00000000 00000000 00000000 "
                             "00000000 00000000",
                             unsigned(priming), unsigned(padding), static_cast<unsigned long long>(samples));
}

MP4GaplessTrim::Layout MP4GaplessTrim::read(const QString& path)
{
    MP4MoovReader::MoovBuffer buffer = MP4MoovReader::read(path);
    MP4BoxTree::Node moov = MP4BoxTree::parse(buffer.data);
    MP4BoxTree::Node* trak = audioTrak(moov);
    if (!trak)
        fail(path, QStringLiteral("no audio track"));
    const MP4BoxTree::Node* stts = MP4BoxTree::find(*trak, {fc("mdia"), fc("minf"), fc("stbl"), fc("stts")});
    const MP4BoxTree::Node* mdhd = MP4BoxTree::find(*trak, {fc("mdia"), fc("mdhd")});
    if (!stts || !mdhd)
        fail(path, QStringLiteral("no sample table"));
    Layout layout;
    layout.timescale = headerTimescale(mdhd->payload);
    const auto entries = readStts(stts->payload);
    if (entries.empty())
        fail(path, QStringLiteral("no samples"));
    layout.framing.frameSize = int(entries.front().delta);
    for (const SttsEntry& e : entries) {
        layout.packets += e.count;
        layout.mediaSamples += std::int64_t(e.count) * e.delta;
    }
    layout.framing.priming = 0;
    if (const MP4BoxTree::Node* elst = MP4BoxTree::find(*trak, {fc("edts"), fc("elst")})) {
        const QByteArray& p = elst->payload;
        const bool wide = p.size() > 0 && p.at(0) == 1;
        // The first entry that is not an empty edit gives the priming.
        const std::uint32_t n = p.size() >= 8 ? MP4Bytes::be32(p.constData() + 4) : 0;
        for (std::uint32_t i = 0; i < n; ++i) {
            const int at = 8 + int(i) * (wide ? 20 : 12);
            if (at + (wide ? 20 : 12) > p.size())
                break;
            const std::int64_t mediaTime = wide ? std::int64_t(MP4Bytes::be64(p.constData() + at + 8))
                                                : std::int32_t(MP4Bytes::be32(p.constData() + at + 4));
            if (mediaTime >= 0) {
                layout.framing.priming = int(mediaTime);
                break;
            }
        }
    }
    return layout;
}

void MP4GaplessTrim::apply(const QString& path, std::int64_t priming, std::int64_t samples)
{
    MP4MoovEditor::edit(path, [&](MP4BoxTree::Node& moov) {
        MP4BoxTree::Node* trak = audioTrak(moov);
        MP4BoxTree::Node* mvhd = moov.child(fc("mvhd"));
        MP4BoxTree::Node* tkhd = trak ? trak->child(fc("tkhd")) : nullptr;
        MP4BoxTree::Node* mdhd = trak ? MP4BoxTree::find(*trak, {fc("mdia"), fc("mdhd")}) : nullptr;
        MP4BoxTree::Node* stts = trak ? MP4BoxTree::find(*trak, {fc("mdia"), fc("minf"), fc("stbl"), fc("stts")}) : nullptr;
        if (!mvhd || !tkhd || !mdhd || !stts)
            fail(path, QStringLiteral("no audio track"));

        // The last packet keeps only the real samples it holds.
        std::vector<SttsEntry> entries = readStts(stts->payload);
        std::int64_t media = 0;
        for (const SttsEntry& e : entries)
            media += std::int64_t(e.count) * e.delta;
        const std::int64_t wanted = priming + samples;
        const std::int64_t excess = media - wanted;
        // The padding is what the last packet's frame holds beyond the real
        // samples, whether its duration still counts the whole frame (a
        // stream copy) or the encoder's muxer already cut it.
        std::int64_t packets = 0;
        for (const SttsEntry& e : entries)
            packets += e.count;
        const std::int64_t padding = entries.empty() ? 0 : packets * std::int64_t(entries.front().delta) - wanted;
        if (entries.empty() || excess < 0 || excess >= std::int64_t(entries.back().delta))
            fail(path, QStringLiteral("its packets hold %1 samples, not %2 (priming %3)")
                           .arg(media)
                           .arg(wanted)
                           .arg(priming));
        if (excess > 0) {
            SttsEntry last = entries.back();
            entries.pop_back();
            if (last.count > 1)
                entries.push_back({last.count - 1, last.delta});
            entries.push_back({1, std::uint32_t(last.delta - excess)});
        }
        stts->payload = writeStts(entries);

        const std::uint32_t mediaScale = headerTimescale(mdhd->payload);
        const std::uint32_t movieScale = headerTimescale(mvhd->payload);
        if (mediaScale == 0 || movieScale == 0)
            fail(path, QStringLiteral("no timescale"));
        const auto presented = std::uint64_t(std::llround(double(samples) * movieScale / mediaScale));
        // mdhd/mvhd: duration at 16 (v0) or 24 (v1); tkhd at 20 or 28.
        setHeaderDuration(mdhd->payload, std::uint64_t(wanted), 16, 24);
        setHeaderDuration(mvhd->payload, presented, 16, 24);
        setHeaderDuration(tkhd->payload, presented, 20, 28);

        MP4BoxTree::Node& edts = trak->ensureChild(fc("edts"));
        edts.children.clear();
        edts.append(MP4BoxTree::Node::leaf(fc("elst"), elstPayload(presented, priming)));
        // edts belongs right after tkhd.
        for (std::size_t i = 0; i < trak->children.size(); ++i) {
            if (trak->children[i].type == fc("edts") && i != 1 && trak->children.size() > 1) {
                MP4BoxTree::Node moved = std::move(trak->children[i]);
                trak->children.erase(trak->children.begin() + std::ptrdiff_t(i));
                trak->children.insert(trak->children.begin() + 1, std::move(moved));
                break;
            }
        }

        MP4BoxTree::Node& ilst = MP4BoxTree::ensureIlst(moov);
        ilst.children.erase(std::remove_if(ilst.children.begin(), ilst.children.end(), isSmpb), ilst.children.end());
        ilst.append(freeform(QStringLiteral("iTunSMPB"), smpbText(priming, std::max<std::int64_t>(padding, 0), samples)));
        return true;
    });
}

} // namespace folivox
