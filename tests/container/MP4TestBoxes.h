#pragma once
// Boxes built in code for the container tests.

#include "container/mp4/MP4Bytes.h"

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>

#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

namespace folivox::test {

inline QByteArray u16(std::uint16_t v)
{
    QByteArray b(2, '\0');
    MP4Bytes::put16(b.data(), v);
    return b;
}
inline QByteArray u32(std::uint32_t v)
{
    return MP4Bytes::be32Bytes(v);
}
inline QByteArray u64(std::uint64_t v)
{
    return MP4Bytes::be64Bytes(v);
}

// A box with an 8-byte header.
inline QByteArray box(const QByteArray& type, const QByteArray& body = {})
{
    return u32(std::uint32_t(8 + body.size())) + type.left(4) + body;
}
// A box with the 16-byte header.
inline QByteArray largeBox(const QByteArray& type, const QByteArray& body = {})
{
    return u32(1) + type.left(4) + u64(std::uint64_t(16 + body.size())) + body;
}
inline QByteArray fullBox(const QByteArray& type, std::uint8_t version, const QByteArray& body = {})
{
    return box(type, QByteArray(1, char(version)) + QByteArray(3, '\0') + body);
}
inline QByteArray freeBox(int totalSize)
{
    return box("free", QByteArray(totalSize - 8, '\0'));
}

inline QByteArray stco(const QList<std::uint32_t>& offsets)
{
    QByteArray body = u32(0) + u32(std::uint32_t(offsets.size()));
    for (auto o : offsets)
        body += u32(o);
    return box("stco", body);
}
inline QByteArray co64(const QList<std::uint64_t>& offsets)
{
    QByteArray body = u32(0) + u32(std::uint32_t(offsets.size()));
    for (auto o : offsets)
        body += u64(o);
    return box("co64", body);
}

// mdhd version 0 (24-byte body) or 1 (36-byte body) with a packed language.
inline QByteArray mdhd(std::uint8_t version, std::uint16_t packedLanguage)
{
    if (version == 1)
        return fullBox("mdhd", 1, u64(0) + u64(0) + u32(1000) + u64(0) + u16(packedLanguage) + u16(0));
    return fullBox("mdhd", version, u32(0) + u32(0) + u32(1000) + u32(0) + u16(packedLanguage) + u16(0));
}
inline QByteArray hdlr(const QByteArray& handler)
{
    return fullBox("hdlr", 0, u32(0) + handler.left(4) + QByteArray(12, '\0') + QByteArray(1, '\0'));
}
inline QByteArray tkhd(std::uint32_t trackID)
{
    return fullBox("tkhd", 0, u32(0) + u32(0) + u32(trackID) + u32(0) + u32(0) + QByteArray(60, '\0'));
}

// A trak with a handler, an mdhd language and a stbl holding the given tables.
inline QByteArray trak(std::uint32_t id, const QByteArray& handler, std::uint16_t packedLanguage,
                       const QByteArray& stblChildren = {}, std::uint8_t mdhdVersion = 0)
{
    return box("trak", tkhd(id)
                           + box("mdia", mdhd(mdhdVersion, packedLanguage) + hdlr(handler)
                                             + box("minf", box("stbl", stblChildren))));
}

// An ilst item holding one UTF-8 data box.
inline QByteArray textItem(const QByteArray& type, const QByteArray& text)
{
    return box(type, box("data", u32(1) + u32(0) + text));
}

inline QByteArray moovWith(const QByteArray& children)
{
    return box("moov", children);
}

// moov with one audio trak whose chunks sit at the given offsets, and an
// ilst with one ©too item.
inline QByteArray simpleMoov(const QList<std::uint32_t>& chunkOffsets, const QByteArray& extra = {})
{
    const QByteArray ilst = box("ilst", textItem("\xA9too", "Folivox test"));
    const QByteArray meta = fullBox("meta", 0, hdlr("mdir") + ilst);
    return moovWith(fullBox("mvhd", 0, QByteArray(96, '\0')) + trak(1, "soun", 0x15C7, stco(chunkOffsets))
                    + box("udta", meta) + extra);
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
inline bool resize(const QString& path, qint64 size)
{
    return ::truncate(QFile::encodeName(path).constData(), off_t(size)) == 0;
}

// Open descriptors of this process, to show a handle was closed.
inline int openDescriptorCount()
{
    int n = 0;
    for (int fd = 0; fd < 4096; ++fd)
        if (::fcntl(fd, F_GETFD) != -1)
            ++n;
    return n;
}

} // namespace folivox::test
