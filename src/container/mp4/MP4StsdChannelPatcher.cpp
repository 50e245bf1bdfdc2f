#include "container/mp4/MP4StsdChannelPatcher.h"

#include "container/io/FaultInjection.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovReader.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QStringList>

namespace folivox {

namespace {
using Box = MP4StsdChannelPatcher::Box;
using Decision = MP4StsdChannelPatcher::Decision;

constexpr std::uint32_t kTrak = MP4Bytes::fourCC("trak");
constexpr std::uint32_t kTkhd = MP4Bytes::fourCC("tkhd");
constexpr std::uint32_t kMdia = MP4Bytes::fourCC("mdia");
constexpr std::uint32_t kHdlr = MP4Bytes::fourCC("hdlr");
constexpr std::uint32_t kMinf = MP4Bytes::fourCC("minf");
constexpr std::uint32_t kStbl = MP4Bytes::fourCC("stbl");
constexpr std::uint32_t kStsd = MP4Bytes::fourCC("stsd");
constexpr std::uint32_t kMp4a = MP4Bytes::fourCC("mp4a");
constexpr std::uint32_t kEsds = MP4Bytes::fourCC("esds");
constexpr std::uint32_t kWave = MP4Bytes::fourCC("wave");
constexpr std::uint32_t kSoun = MP4Bytes::fourCC("soun");

// Children of [from, to); empty optional when one does not decode.
std::optional<QList<Box>> children(const QByteArray& buf, qsizetype from, qsizetype to)
{
    if (from < 0 || to > buf.size() || from > to)
        return std::nullopt;
    QList<Box> out;
    qsizetype pos = from;
    try {
        while (pos < to) {
            const MP4BoxHeader h = MP4BoxHeader::decodeAt(buf, pos, to);
            out.append(Box{h.type, h.typeCode, pos + qsizetype(h.headerLength), pos + qsizetype(h.size)});
            pos += qsizetype(h.size);
        }
    } catch (const MP4BoxHeader::ParseError&) {
        return std::nullopt;
    }
    return out;
}

std::optional<Box> find(const QList<Box>& boxes, std::uint32_t code)
{
    for (const Box& b : boxes)
        if (b.typeCode == code)
            return b;
    return std::nullopt;
}

std::optional<Box> childOf(const QByteArray& buf, const std::optional<Box>& parent, std::uint32_t code)
{
    if (!parent)
        return std::nullopt;
    const auto kids = children(buf, parent->body, parent->end);
    return kids ? find(*kids, code) : std::nullopt;
}

class BitReader {
public:
    BitReader(const unsigned char* data, qsizetype size) : data_(data), bits_(size * 8) {}
    bool has(qsizetype n) const { return pos_ + n <= bits_; }
    qsizetype left() const { return bits_ - pos_; }
    // Reads n bits (n <= 32); sets failed() when they aren't there.
    std::uint32_t get(int n)
    {
        if (!has(n)) {
            failed_ = true;
            pos_ = bits_;
            return 0;
        }
        std::uint32_t v = 0;
        for (int i = 0; i < n; ++i, ++pos_)
            v = (v << 1) | ((data_[pos_ >> 3] >> (7 - (pos_ & 7))) & 1);
        return v;
    }
    bool failed() const { return failed_; }

private:
    const unsigned char* data_;
    qsizetype bits_;
    qsizetype pos_ = 0;
    bool failed_ = false;
};

struct AudioConfig {
    int audioObjectType = 0;
    int channelConfiguration = 0;
    bool parametricStereo = false;
};

int readObjectType(BitReader& r)
{
    const int aot = int(r.get(5));
    return aot == 31 ? 32 + int(r.get(6)) : aot;
}

void readFrequency(BitReader& r)
{
    if (r.get(4) == 15)
        r.get(24);
}

// AudioSpecificConfig (ISO 14496-3 1.6.2.1), as far as the object type, the
// channel configuration and the SBR/PS signalling.
std::optional<AudioConfig> parseAudioSpecificConfig(const unsigned char* data, qsizetype size)
{
    BitReader r(data, size);
    AudioConfig c;
    c.audioObjectType = readObjectType(r);
    readFrequency(r);
    c.channelConfiguration = int(r.get(4));
    if (r.failed())
        return std::nullopt;
    int coreType = c.audioObjectType;
    bool explicitExtension = false;
    if (c.audioObjectType == 5 || c.audioObjectType == 29) {
        explicitExtension = true;
        if (c.audioObjectType == 29)
            c.parametricStereo = true;
        readFrequency(r);
        coreType = readObjectType(r);
        if (coreType == 22)
            r.get(4);
        if (r.failed())
            return std::nullopt;
    }
    // GASpecificConfig, only to reach a backward-compatible extension behind it.
    static constexpr int kGeneralAudio[] = {1, 2, 3, 4, 6, 7, 17, 19, 20, 21, 22, 23};
    bool general = false;
    for (int t : kGeneralAudio)
        general = general || t == coreType;
    if (!general || c.channelConfiguration == 0)
        return c; // a program config element or another coder: nothing more to learn
    r.get(1); // frameLengthFlag
    if (r.get(1))
        r.get(14); // coreCoderDelay
    const bool extensionFlag = r.get(1);
    if (coreType == 6 || coreType == 20)
        r.get(3);
    if (extensionFlag) {
        if (coreType == 22) {
            r.get(5);
            r.get(11);
        }
        if (coreType == 17 || coreType == 19 || coreType == 20 || coreType == 23)
            r.get(3);
        r.get(1);
    }
    if (r.failed())
        return std::nullopt;
    if (!explicitExtension && r.left() >= 16) {
        if (r.get(11) == 0x2B7) {
            const int extType = readObjectType(r);
            if (extType == 5) {
                if (r.get(1)) {
                    readFrequency(r);
                    if (r.left() >= 12 && r.get(11) == 0x548)
                        c.parametricStereo = r.get(1) != 0;
                }
            }
        }
    }
    return c;
}

// The expandable length of an MPEG-4 descriptor (up to four 7-bit groups).
bool readDescriptor(const unsigned char* data, qsizetype size, qsizetype& pos, int& tag, qsizetype& length)
{
    if (pos >= size)
        return false;
    tag = data[pos++];
    length = 0;
    for (int i = 0; i < 4; ++i) {
        if (pos >= size)
            return false;
        const unsigned char b = data[pos++];
        length = (length << 7) | (b & 0x7F);
        if (!(b & 0x80))
            break;
    }
    return length <= size - pos;
}

// Finds the DecoderSpecificInfo (the AudioSpecificConfig) inside an esds body.
std::optional<AudioConfig> configFromEsds(const unsigned char* data, qsizetype size)
{
    qsizetype pos = 0;
    int tag = 0;
    qsizetype len = 0;
    if (!readDescriptor(data, size, pos, tag, len))
        return std::nullopt;
    qsizetype end = pos + len;
    if (tag == 0x03) {
        if (end - pos < 3)
            return std::nullopt;
        const unsigned char flags = data[pos + 2];
        pos += 3;
        if (flags & 0x80)
            pos += 2;
        if (flags & 0x40) {
            if (pos >= end)
                return std::nullopt;
            pos += 1 + data[pos];
        }
        if (flags & 0x20)
            pos += 2;
        // Sub-descriptors until the DecoderConfigDescriptor.
        for (;;) {
            if (pos >= end || !readDescriptor(data, end, pos, tag, len))
                return std::nullopt;
            if (tag == 0x04)
                break;
            pos += len;
        }
        end = pos + len;
    } else if (tag != 0x04) {
        return std::nullopt;
    }
    // DecoderConfigDescriptor: 13 fixed bytes, then the DecoderSpecificInfo.
    pos += 13;
    while (pos < end) {
        if (!readDescriptor(data, end, pos, tag, len))
            return std::nullopt;
        if (tag == 0x05)
            return parseAudioSpecificConfig(data + pos, len);
        pos += len;
    }
    return std::nullopt;
}

Decision skip(std::optional<qsizetype> trackID, const QString& reason)
{
    Decision d;
    d.trackID = trackID;
    d.reason = reason;
    return d;
}

Decision decideTrack(const QByteArray& buf, const Box& trak)
{
    const auto* u = reinterpret_cast<const unsigned char*>(buf.constData());
    const auto kids = children(buf, trak.body, trak.end);
    if (!kids)
        return skip(std::nullopt, QStringLiteral("trak-unparseable"));
    std::optional<qsizetype> trackID;
    if (const auto tkhd = find(*kids, kTkhd)) {
        const qsizetype len = tkhd->end - tkhd->body;
        if (len >= 1) {
            const qsizetype at = u[tkhd->body] == 1 ? tkhd->body + 20 : tkhd->body + 12;
            if (at + 4 <= tkhd->end)
                trackID = qsizetype(MP4Bytes::be32(buf.constData() + at));
        }
    }
    const auto mdia = find(*kids, kMdia);
    if (!mdia)
        return skip(trackID, QStringLiteral("no-mdia"));
    const auto hdlr = childOf(buf, mdia, kHdlr);
    if (!hdlr || hdlr->end - hdlr->body < 12)
        return skip(trackID, QStringLiteral("no-hdlr"));
    const std::uint32_t handler = MP4Bytes::be32(buf.constData() + hdlr->body + 8);
    if (handler != kSoun)
        return skip(trackID, QStringLiteral("handler=") + MP4Bytes::typeText(handler));
    const auto stsd = childOf(buf, childOf(buf, childOf(buf, mdia, kMinf), kStbl), kStsd);
    if (!stsd)
        return skip(trackID, QStringLiteral("no-stsd"));
    if (stsd->end - stsd->body < 8)
        return skip(trackID, QStringLiteral("stsd-short"));
    const std::uint32_t entries = MP4Bytes::be32(buf.constData() + stsd->body + 4);
    if (entries != 1)
        return skip(trackID, QStringLiteral("stsd-entries=%1").arg(entries));
    const auto sampleEntries = children(buf, stsd->body + 8, stsd->end);
    if (!sampleEntries || sampleEntries->isEmpty())
        return skip(trackID, QStringLiteral("stsd-entry-unparseable"));
    const Box entry = sampleEntries->first();
    if (entry.typeCode != kMp4a)
        return skip(trackID, QStringLiteral("entry=") + entry.type);
    if (entry.end - entry.body < 28)
        return skip(trackID, QStringLiteral("mp4a-short"));
    const std::uint16_t version = MP4Bytes::be16(buf.constData() + entry.body + 8);
    if (version != 0 && version != 1)
        return skip(trackID, QStringLiteral("mp4a-v%1").arg(version));
    const qsizetype childStart = entry.body + (version == 0 ? 28 : 44);
    const auto entryKids = childStart <= entry.end ? children(buf, childStart, entry.end) : std::nullopt;
    if (!entryKids)
        return skip(trackID, QStringLiteral("mp4a-children-unparseable"));
    auto esds = find(*entryKids, kEsds);
    if (!esds)
        esds = childOf(buf, find(*entryKids, kWave), kEsds);
    if (!esds || esds->end - esds->body - 4 < 0)
        return skip(trackID, QStringLiteral("no-esds"));
    const auto config = configFromEsds(u + esds->body + 4, esds->end - esds->body - 4);
    if (!config)
        return skip(trackID, QStringLiteral("asc-unparseable"));
    if (config->audioObjectType == 29 || config->parametricStereo)
        return skip(trackID, QStringLiteral("ps aot=%1").arg(config->audioObjectType));
    if (config->audioObjectType != 2 && config->audioObjectType != 5)
        return skip(trackID, QStringLiteral("aot=%1").arg(config->audioObjectType));
    if (config->channelConfiguration != 1)
        return skip(trackID, QStringLiteral("chcfg=%1").arg(config->channelConfiguration));
    const qsizetype at = entry.body + 16;
    const std::uint16_t channels = MP4Bytes::be16(buf.constData() + at);
    if (channels == 1)
        return skip(trackID, QStringLiteral("already-1"));

    MP4StsdChannelPatcher::Edit edit;
    edit.trackID = trackID.value_or(0);
    edit.offset = at;
    edit.before = channels;
    edit.after = 1;
    edit.audioObjectType = config->audioObjectType;
    edit.channelConfiguration = config->channelConfiguration;
    Decision d;
    d.patch = edit;
    d.trackID = trackID;
    return d;
}
} // namespace

QList<MP4StsdChannelPatcher::Decision> MP4StsdChannelPatcher::decide(const QByteArray& moov)
{
    QList<Decision> decisions;
    MP4BoxHeader top;
    try {
        top = MP4BoxHeader::decodeAt(moov, 0, moov.size());
    } catch (const MP4BoxHeader::ParseError&) {
        return decisions;
    }
    // The traks before any damage still get their decision.
    qsizetype pos = qsizetype(top.headerLength);
    const qsizetype end = qsizetype(top.size);
    while (pos < end) {
        MP4BoxHeader h;
        try {
            h = MP4BoxHeader::decodeAt(moov, pos, end);
        } catch (const MP4BoxHeader::ParseError&) {
            break;
        }
        if (h.is(kTrak))
            decisions.append(decideTrack(moov, Box{h.type, h.typeCode, pos + qsizetype(h.headerLength), pos + qsizetype(h.size)}));
        pos += qsizetype(h.size);
    }
    return decisions;
}

MP4StsdChannelPatcher::Outcome MP4StsdChannelPatcher::apply(const QString& path)
{
    Outcome outcome;
    MP4MoovReader::MoovBuffer moov;
    try {
        moov = MP4MoovReader::read(path);
    } catch (const Error&) {
        outcome.reason = QStringLiteral("moov-unreadable");
        return outcome;
    }

    QList<Edit> edits;
    QStringList reasons;
    for (const Decision& d : decide(moov.data)) {
        if (d.patch)
            edits.append(*d.patch);
        else if (d.trackID)
            reasons.append(QStringLiteral("trak%1:%2").arg(*d.trackID).arg(d.reason));
        else
            reasons.append(d.reason);
    }
    if (edits.isEmpty()) {
        outcome.reason = reasons.isEmpty() ? QStringLiteral("no-trak") : reasons.join(u',');
        return outcome;
    }

    FaultInjection::reach("stsd.decided");
    MP4File file(path, MP4File::Access::update);
    const std::uint64_t fileSize = file.size();
    // Verify every edit before writing any.
    for (const Edit& e : edits) {
        const std::uint64_t position = moov.fileOffset + std::uint64_t(e.offset);
        if (position + 2 > fileSize) {
            outcome.reason = QStringLiteral("offset-past-eof");
            return outcome;
        }
        const QByteArray now = file.readAt(position, 2);
        if (now.size() != 2 || MP4Bytes::be16(now.constData()) != e.before) {
            outcome.reason = QStringLiteral("changed-since-plan");
            return outcome;
        }
    }
    for (const Edit& e : edits) {
        char bytes[2];
        MP4Bytes::put16(bytes, e.after);
        file.writeAt(moov.fileOffset + std::uint64_t(e.offset), bytes, 2);
    }
    file.sync();
    file.close();
    outcome.edits = edits;
    return outcome;
}

MP4StsdChannelPatcher::Outcome MP4StsdChannelPatcher::applyLogged(const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    Outcome outcome;
    try {
        outcome = apply(path);
    } catch (const Error& e) {
        Log::write(QStringLiteral("[StsdPatch] %1 FAILED: %2").arg(name, e.description()));
        outcome.edits.clear();
        outcome.reason = QStringLiteral("io-error ") + e.description();
        return outcome;
    }
    if (outcome.edits.isEmpty()) {
        Log::write(QStringLiteral("[StsdPatch] %1 unchanged: %2").arg(name, outcome.reason));
    } else {
        for (const Edit& e : outcome.edits)
            Log::write(QStringLiteral("[StsdPatch] %1 trak%2 channelcount %3 -> %4 (aot=%5 chcfg=%6)")
                           .arg(name)
                           .arg(e.trackID)
                           .arg(e.before)
                           .arg(e.after)
                           .arg(e.audioObjectType)
                           .arg(e.channelConfiguration));
    }
    return outcome;
}

} // namespace folivox
