#pragma once
// mp4a sample entries with real esds descriptors, for the channel patcher tests.

#include "MP4TestBoxes.h"

#include <vector>

namespace folivox::test {

class BitWriter {
public:
    void put(std::uint32_t value, int bits)
    {
        for (int i = bits - 1; i >= 0; --i)
            bits_.push_back((value >> i) & 1);
    }
    QByteArray bytes() const
    {
        QByteArray out((qsizetype(bits_.size()) + 7) / 8, '\0');
        for (size_t i = 0; i < bits_.size(); ++i)
            if (bits_[i])
                out[qsizetype(i / 8)] = char(out[qsizetype(i / 8)] | (0x80 >> (i % 8)));
        return out;
    }

private:
    std::vector<int> bits_;
};

// AudioSpecificConfig: object type, frequency index, channel configuration,
// then a plain GASpecificConfig (three zero bits).
inline QByteArray asc(int aot, int freqIndex, int channels)
{
    BitWriter w;
    w.put(std::uint32_t(aot), 5);
    w.put(std::uint32_t(freqIndex), 4);
    w.put(std::uint32_t(channels), 4);
    if (aot == 5 || aot == 29) {
        w.put(4, 4); // extension frequency index
        w.put(2, 5); // core object type AAC-LC
    }
    w.put(0, 3);
    return w.bytes();
}

// AAC-LC with backward-compatible SBR and PS signalled behind the GA config.
inline QByteArray ascWithSyncExtension(int channels, bool ps)
{
    BitWriter w;
    w.put(2, 5);
    w.put(7, 4);
    w.put(std::uint32_t(channels), 4);
    w.put(0, 3);
    w.put(0x2B7, 11);
    w.put(5, 5);
    w.put(1, 1); // sbr present
    w.put(4, 4);
    w.put(0x548, 11);
    w.put(ps ? 1 : 0, 1);
    return w.bytes();
}

inline QByteArray descriptor(int tag, const QByteArray& body)
{
    return QByteArray(1, char(tag)) + QByteArray(1, char(body.size())) + body;
}

inline QByteArray esds(const QByteArray& audioSpecificConfig)
{
    const QByteArray decoderConfig = descriptor(
        0x04, QByteArray("\x40\x15", 2) + QByteArray(3, '\0') + u32(128000) + u32(128000) + descriptor(0x05, audioSpecificConfig));
    const QByteArray es = descriptor(0x03, u16(1) + QByteArray(1, '\0') + decoderConfig + descriptor(0x06, QByteArray(1, 2)));
    return fullBox("esds", 0, es);
}

// An mp4a entry of sound version 0 or 1 with the given channelcount; for
// version 1 the esds can sit inside a `wave` box.
inline QByteArray mp4a(std::uint16_t channelCount, const QByteArray& esdsBox, std::uint16_t version = 0, bool inWave = false)
{
    QByteArray body = QByteArray(6, '\0') + u16(1) + u16(version) + u16(0) + u32(0) + u16(channelCount) + u16(16) + u16(0)
        + u16(0) + u32(44100u << 16);
    if (version == 1)
        body += u32(1024) + u32(0) + u32(0) + u32(2);
    body += inWave ? box("wave", box("frma", "mp4a") + esdsBox) : esdsBox;
    return box("mp4a", body);
}

inline QByteArray stsd(const QByteArray& entries, std::uint32_t count = 1)
{
    return fullBox("stsd", 0, u32(count) + entries);
}

} // namespace folivox::test
