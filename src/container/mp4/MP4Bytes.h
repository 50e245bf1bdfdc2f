#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace folivox {

// Big-endian integer access and four-character codes, the small vocabulary
// every MP4 editor in this folder shares. Callers check bounds first.
class MP4Bytes {
public:
    static constexpr std::uint32_t fourCC(const char (&s)[5])
    {
        return (std::uint32_t(std::uint8_t(s[0])) << 24) | (std::uint32_t(std::uint8_t(s[1])) << 16)
            | (std::uint32_t(std::uint8_t(s[2])) << 8) | std::uint32_t(std::uint8_t(s[3]));
    }

    static std::uint16_t be16(const char* p)
    {
        const auto* u = reinterpret_cast<const unsigned char*>(p);
        return std::uint16_t((u[0] << 8) | u[1]);
    }
    static std::uint32_t be32(const char* p)
    {
        const auto* u = reinterpret_cast<const unsigned char*>(p);
        return (std::uint32_t(u[0]) << 24) | (std::uint32_t(u[1]) << 16) | (std::uint32_t(u[2]) << 8) | u[3];
    }
    static std::uint64_t be64(const char* p) { return (std::uint64_t(be32(p)) << 32) | be32(p + 4); }

    static void put16(char* p, std::uint16_t v)
    {
        p[0] = char(v >> 8);
        p[1] = char(v);
    }
    static void put32(char* p, std::uint32_t v)
    {
        p[0] = char(v >> 24);
        p[1] = char(v >> 16);
        p[2] = char(v >> 8);
        p[3] = char(v);
    }
    static void put64(char* p, std::uint64_t v)
    {
        put32(p, std::uint32_t(v >> 32));
        put32(p + 4, std::uint32_t(v));
    }

    static QByteArray be32Bytes(std::uint32_t v)
    {
        QByteArray b(4, '\0');
        put32(b.data(), v);
        return b;
    }
    static QByteArray be64Bytes(std::uint64_t v)
    {
        QByteArray b(8, '\0');
        put64(b.data(), v);
        return b;
    }
    static QByteArray fourCCBytes(std::uint32_t code) { return be32Bytes(code); }

    // The four bytes rendered as text: 0x20..0x7E stand for themselves, any
    // other byte becomes "?". Lossy; compare codes, never this text.
    static QString typeText(std::uint32_t code)
    {
        QString s;
        s.reserve(4);
        for (int shift = 24; shift >= 0; shift -= 8) {
            const unsigned c = (code >> shift) & 0xFF;
            s.append(c >= 0x20 && c <= 0x7E ? QChar(char16_t(c)) : QChar(u'?'));
        }
        return s;
    }
};

} // namespace folivox
