#pragma once

// MP4 files built byte by byte for the tool tests: an ftyp, an mdat of
// silence-like bytes and a moov with one sound track whose single chunk
// points into that mdat.
#include "container/mp4/MP4Bytes.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <cstdint>

namespace folivox::test {

inline QByteArray be32(std::uint32_t v)
{
    return MP4Bytes::be32Bytes(v);
}

inline QByteArray box(const char* type, const QByteArray& payload)
{
    return be32(std::uint32_t(8 + payload.size())) + QByteArray(type, 4) + payload;
}

inline QByteArray fullBox(const char* type, std::uint32_t versionFlags, const QByteArray& payload)
{
    return box(type, be32(versionFlags) + payload);
}

struct SoundTrackSpec {
    std::uint32_t durationMs = 60000;
    std::uint64_t chunkOffset = 0;
    std::uint32_t sampleCount = 10;
    std::uint32_t sampleSize = 100;
};

inline QByteArray mvhd(std::uint32_t durationMs, std::uint32_t nextTrackID)
{
    QByteArray p = be32(0) + be32(0) + be32(1000) + be32(durationMs) + be32(0x00010000) + QByteArray(2, '\x01')
        + QByteArray(10, '\0');
    for (std::uint32_t v : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u})
        p += be32(v);
    p += QByteArray(24, '\0') + be32(nextTrackID);
    return fullBox("mvhd", 0, p);
}

inline QByteArray soundTrak(const SoundTrackSpec& s)
{
    QByteArray tkhd = be32(0) + be32(0) + be32(1) + be32(0) + be32(s.durationMs) + QByteArray(8, '\0') + QByteArray(8, '\0');
    for (std::uint32_t v : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u})
        tkhd += be32(v);
    tkhd += be32(0) + be32(0);
    const QByteArray mdhd = fullBox("mdhd", 0, be32(0) + be32(0) + be32(1000) + be32(s.durationMs) + QByteArray("\x55\xC4\0\0", 4));
    const QByteArray hdlr = fullBox("hdlr", 0, be32(0) + QByteArray("soun") + QByteArray(12, '\0') + QByteArray("Sound", 6));
    const QByteArray dinf = box("dinf", fullBox("dref", 0, be32(1) + fullBox("url ", 1, {})));
    const QByteArray stsd = fullBox("stsd", 0, be32(1) + box("mp4a", QByteArray(28, '\0')));
    const QByteArray stts = fullBox("stts", 0, be32(1) + be32(s.sampleCount) + be32(s.durationMs / s.sampleCount));
    const QByteArray stsc = fullBox("stsc", 0, be32(1) + be32(1) + be32(s.sampleCount) + be32(1));
    QByteArray sizes = be32(0) + be32(s.sampleCount);
    for (std::uint32_t i = 0; i < s.sampleCount; ++i)
        sizes += be32(s.sampleSize);
    const QByteArray stsz = fullBox("stsz", 0, sizes);
    const QByteArray chunks = s.chunkOffset > 0xFFFFFFFFu ? fullBox("co64", 0, be32(1) + MP4Bytes::be64Bytes(s.chunkOffset))
                                                           : fullBox("stco", 0, be32(1) + be32(std::uint32_t(s.chunkOffset)));
    const QByteArray stbl = box("stbl", stsd + stts + stsc + stsz + chunks);
    const QByteArray minf = box("minf", fullBox("smhd", 0, be32(0)) + dinf + stbl);
    return box("trak", fullBox("tkhd", 3, tkhd) + box("mdia", mdhd + hdlr + minf));
}

inline QByteArray ftyp()
{
    return box("ftyp", QByteArray("M4A ") + be32(512) + QByteArray("M4A isomiso2"));
}

// ftyp, mdat (sampleCount * sampleSize bytes), moov at the end.
inline QByteArray simpleMp4(std::uint32_t durationMs = 60000, const QByteArray& extraMoovChildren = {})
{
    SoundTrackSpec s;
    s.durationMs = durationMs;
    const QByteArray head = ftyp();
    const QByteArray media(int(s.sampleCount * s.sampleSize), '\x5A');
    s.chunkOffset = std::uint64_t(head.size()) + 8;
    return head + box("mdat", media) + box("moov", mvhd(durationMs, 2) + soundTrak(s) + extraMoovChildren);
}

inline bool writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

inline QByteArray readBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace folivox::test
