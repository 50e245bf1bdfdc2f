#include "import/probe/AudioSpecificConfig.h"

#include <array>
#include <cstdint>

namespace folivox {

namespace {

constexpr std::array<int, 13> kSampleRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                           22050, 16000, 12000, 11025, 8000,  7350};

// Reads bits most significant first; reading past the end marks the reader
// as overrun and yields zeros, so a caller checks ok() once at the end of a
// section instead of after every field.
class BitReader {
public:
    explicit BitReader(const QByteArray& bytes)
        : data_(reinterpret_cast<const std::uint8_t*>(bytes.constData()))
        , sizeBits_(static_cast<std::size_t>(bytes.size()) * 8)
    {
    }

    std::uint32_t read(int count)
    {
        std::uint32_t value = 0;
        for (int i = 0; i < count; ++i) {
            value <<= 1;
            if (pos_ >= sizeBits_) {
                overrun_ = true;
                continue;
            }
            const std::uint8_t byte = data_[pos_ / 8];
            value |= (byte >> (7 - pos_ % 8)) & 1u;
            ++pos_;
        }
        return value;
    }

    std::size_t remaining() const { return pos_ >= sizeBits_ ? 0 : sizeBits_ - pos_; }
    bool ok() const { return !overrun_; }

private:
    const std::uint8_t* data_;
    std::size_t sizeBits_;
    std::size_t pos_ = 0;
    bool overrun_ = false;
};

int readObjectType(BitReader& r)
{
    int type = static_cast<int>(r.read(5));
    if (type == 31)
        type = 32 + static_cast<int>(r.read(6));
    return type;
}

// A sampling frequency index and, for index 15, the explicit 24-bit rate.
// Empty for the reserved indexes 13 and 14.
std::optional<std::pair<int, int>> readFrequency(BitReader& r)
{
    const int index = static_cast<int>(r.read(4));
    if (index == 15)
        return std::make_pair(index, static_cast<int>(r.read(24)));
    if (index > 12)
        return std::nullopt;
    return std::make_pair(index, kSampleRates[static_cast<std::size_t>(index)]);
}

} // namespace

int AudioSpecificConfig::sampleRateForIndex(int index)
{
    if (index < 0 || index > 12)
        return 0;
    return kSampleRates[static_cast<std::size_t>(index)];
}

std::optional<AudioSpecificConfig> AudioSpecificConfig::parse(const QByteArray& bytes)
{
    BitReader r(bytes);
    AudioSpecificConfig c;
    c.objectType = readObjectType(r);
    const auto freq = readFrequency(r);
    if (!freq)
        return std::nullopt;
    c.samplingFrequencyIndex = freq->first;
    c.sampleRate = freq->second;
    c.channelConfiguration = static_cast<int>(r.read(4));
    if (!r.ok())
        return std::nullopt;

    if (c.objectType == 5 || c.objectType == 29) {
        const auto ext = readFrequency(r);
        if (!ext)
            return std::nullopt;
        c.extensionSampleRate = ext->second;
        c.innerObjectType = static_cast<int>(r.read(5));
        if (!r.ok())
            return std::nullopt;
        return c;
    }

    if (c.objectType == 2) {
        c.frameLengthFlag = r.read(1) != 0;
        c.dependsOnCoreCoder = r.read(1) != 0;
        if (c.dependsOnCoreCoder)
            c.coreCoderDelay = static_cast<int>(r.read(14));
        c.extensionFlag = r.read(1) != 0;
        if (!r.ok())
            return std::nullopt;
        if (r.remaining() >= 16 && r.read(11) == 0x2B7) {
            c.syncExtensionPresent = true;
            const int extensionType = static_cast<int>(r.read(5));
            if (extensionType == 5) {
                const bool sbr = r.read(1) != 0;
                c.sbrPresentFlag = sbr;
                if (sbr) {
                    if (const auto ext = readFrequency(r))
                        c.extensionSampleRate = ext->second;
                    // Parametric stereo rides on a second sync extension.
                    if (r.ok() && r.remaining() >= 12 && r.read(11) == 0x548)
                        c.psPresentFlag = r.read(1) != 0;
                }
            }
            if (!r.ok()) {
                // A truncated extension says nothing reliable about SBR.
                c.sbrPresentFlag.reset();
                c.psPresentFlag = false;
                c.extensionSampleRate.reset();
            }
        }
    }
    return c;
}

QString AudioSpecificConfig::codec() const
{
    switch (objectType) {
    case 2:
        if (sbrPresentFlag.value_or(false))
            return psPresentFlag ? QStringLiteral("he-aacv2") : QStringLiteral("he-aac");
        return QStringLiteral("aac-lc");
    case 5:
        return QStringLiteral("he-aac");
    case 29:
        return QStringLiteral("he-aacv2");
    case 42:
        return QStringLiteral("xhe-aac");
    default:
        return QStringLiteral("aac");
    }
}

} // namespace folivox
