// AAC-LC at bitrates that look like HE-AAC from outside (64 kb/s stereo,
// 32 kb/s mono) is recognised as LC by decoding its first frames, so a
// book of it can be copied rather than re-encoded.
#include "import/probe/AacDecodedProfile.h"
#include "import/probe/LibavAudioInspector.h"
#include "import/probe/AudioSpecificConfig.h"
#include "support/Fixtures.h"
#include "support/MediaReaders.h"

#include <QRegularExpression>
#include <QTemporaryDir>

#include <vector>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

// Bits of a byte string, most significant first.
std::vector<bool> bitsOf(const QByteArray& bytes)
{
    std::vector<bool> bits;
    bits.reserve(static_cast<size_t>(bytes.size()) * 8);
    for (const char c : bytes)
        for (int i = 7; i >= 0; --i)
            bits.push_back(((static_cast<unsigned char>(c) >> i) & 1) != 0);
    return bits;
}

void putBits(std::vector<bool>& bits, unsigned value, int count)
{
    for (int i = count - 1; i >= 0; --i)
        bits.push_back(((value >> i) & 1) != 0);
}

QByteArray bytesOf(const std::vector<bool>& bits)
{
    QByteArray out(static_cast<qsizetype>((bits.size() + 7) / 8), '\0');
    for (size_t i = 0; i < bits.size(); ++i)
        if (bits[i])
            out[static_cast<qsizetype>(i / 8)] = static_cast<char>(out[static_cast<qsizetype>(i / 8)] | (0x80 >> (i % 8)));
    return out;
}

// HE-AAC with implicit signalling, made from an ADTS AAC-LC stream: every raw
// data block gets a fill element carrying an SBR extension payload
// (extension type EXT_SBR_DATA, no SBR header yet) just before its END
// element, while the ADTS headers (and so the AudioSpecificConfig an MP4 made
// from them stores) keep saying AAC-LC at the core sample rate. SBR is present
// only inside the audio, as with encoders that use backward-compatible
// signalling. The encoder pads each block with zero bits after END (0b111),
// so END is the last three bits before the padding.
QByteArray withImplicitSbr(const QByteArray& adts)
{
    QByteArray out;
    qsizetype pos = 0;
    while (pos + 7 <= adts.size()) {
        const auto byte = [&](qsizetype i) { return static_cast<unsigned char>(adts[pos + i]); };
        if (byte(0) != 0xFF || (byte(1) & 0xF6) != 0xF0 || (byte(6) & 0x03) != 0)
            return {}; // not ADTS, a CRC, or more than one raw data block per frame
        const qsizetype frameLength = ((byte(3) & 0x03) << 11) | (byte(4) << 3) | (byte(5) >> 5);
        if (frameLength <= 7 || pos + frameLength > adts.size())
            return {};
        std::vector<bool> block = bitsOf(adts.mid(pos + 7, frameLength - 7));
        size_t last = block.size();
        while (last > 0 && !block[last - 1])
            --last;
        if (last < 3 || !block[last - 2] || !block[last - 3])
            return {};
        block.resize(last - 3);
        putBits(block, 6, 3);   // ID_FIL
        putBits(block, 1, 4);   // one byte of extension payload
        putBits(block, 0xD, 4); // EXT_SBR_DATA
        putBits(block, 0, 1);   // bs_header_flag: no SBR header in this block
        putBits(block, 0, 3);   // byte alignment of the payload
        putBits(block, 7, 3);   // ID_END
        const QByteArray body = bytesOf(block);
        QByteArray header = adts.mid(pos, 7);
        const qsizetype length = 7 + body.size();
        header[3] = static_cast<char>((byte(3) & 0xFC) | ((length >> 11) & 0x03));
        header[4] = static_cast<char>((length >> 3) & 0xFF);
        header[5] = static_cast<char>((byte(5) & 0x1F) | ((length & 0x07) << 5));
        out += header + body;
        pos += frameLength;
    }
    return pos == adts.size() ? out : QByteArray();
}

// The AudioSpecificConfig an MP4 stores for its audio, as ffprobe dumps it.
std::optional<AudioSpecificConfig> storedConfig(const QString& path)
{
    const auto r = test::MediaReaders::run(QStringLiteral("ffprobe"),
                                           {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-select_streams"),
                                            QStringLiteral("a:0"), QStringLiteral("-show_streams"), QStringLiteral("-show_data"), path});
    static const QRegularExpression dump(QStringLiteral("extradata=\\s*\\n0+:\\s((?:[0-9a-f]{2,4} )+)"));
    const QRegularExpressionMatch m = dump.match(QString::fromUtf8(r.out));
    if (!m.hasMatch())
        return std::nullopt;
    return AudioSpecificConfig::parse(QByteArray::fromHex(m.captured(1).remove(QLatin1Char(' ')).toLatin1()));
}

} // namespace

TEST(AacProfile, LowBitrateAacLcIsTakenForWhatItIsNotForHeAac)
{
    QTemporaryDir dir;
    struct Case {
        const char* name;
        int channels;
        const char* bitrate;
    };
    for (const Case& c : {Case{"stereo64.m4b", 2, "64k"}, Case{"mono32.m4a", 1, "32k"}}) {
        const QString path = dir.filePath(QString::fromLatin1(c.name));
        ASSERT_TRUE(Fixtures::tone(path, 3.0, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"), QString::fromLatin1(c.bitrate)},
                                   44100, c.channels));
        EXPECT_EQ(AacDecodedProfile::of(path), QStringLiteral("aac-lc")) << c.name;
        // The full inspection (which used to apply the bitrate rule here).
        const AudioSourceFormat f = LibavAudioInspector().inspect(path);
        EXPECT_EQ(f.codec, QStringLiteral("aac-lc")) << c.name;
        EXPECT_EQ(f.channels, c.channels) << c.name;
    }
    // Not AAC at all: no answer, and the caller falls back to its other rules.
    const QString mp3 = dir.filePath(QStringLiteral("a.mp3"));
    ASSERT_TRUE(Fixtures::tone(mp3, 1.0));
    EXPECT_EQ(AacDecodedProfile::of(mp3), std::nullopt);
    EXPECT_EQ(AacDecodedProfile::of(dir.filePath(QStringLiteral("missing.m4a"))), std::nullopt);
}

// The bitrate rule stays for what cannot be decoded.
TEST(AacProfile, TheBitrateRuleAppliesOnlyWithoutADecodedProfile)
{
    AudioSourceFormat av;
    av.codec = QStringLiteral("aac-lc");
    av.bitrate = 64000;
    av.sampleRate = 44100;
    av.channels = 2;
    EXPECT_EQ(LibavAudioInspector::merge(av, std::nullopt, QStringLiteral("x.m4b")).codec, QStringLiteral("he-aac"));
    EXPECT_EQ(LibavAudioInspector::merge(av, std::nullopt, QStringLiteral("x.m4b"), QStringLiteral("aac-lc")).codec,
              QStringLiteral("aac-lc"));
    const AudioSourceFormat v2 = LibavAudioInspector::merge(av, std::nullopt, QStringLiteral("x.m4b"), QStringLiteral("he-aacv2"));
    EXPECT_EQ(v2.codec, QStringLiteral("he-aacv2"));
}

// HE-AAC that only the audio itself reveals: the container says AAC-LC at
// 22.05 kHz (at bitrates the bitrate rule calls LC), and the decoder finds
// SBR in the first frames. A mono one stays mono HE-AAC: no parametric stereo
// is in it, though libavformat reports the two channels the decoder makes.
TEST(AacProfile, ImplicitlySignalledHeAacIsFoundInTheAudio)
{
    QTemporaryDir dir;
    struct Case {
        const char* name;
        int channels;
        const char* bitrate;
    };
    for (const Case& c : {Case{"stereo", 2, "48k"}, Case{"mono", 1, "24k"}}) {
        const QString name = QString::fromLatin1(c.name);
        const QString lc = dir.filePath(name + QStringLiteral("-lc.aac"));
        ASSERT_TRUE(Fixtures::tone(lc, 3.0,
                                   {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"), QString::fromLatin1(c.bitrate),
                                    QStringLiteral("-flags"), QStringLiteral("+bitexact"), QStringLiteral("-f"), QStringLiteral("adts")},
                                   22050, c.channels));
        const QByteArray he = withImplicitSbr(Fixtures::readFile(lc));
        ASSERT_FALSE(he.isEmpty()) << "the encoder's ADTS frames could not be rewritten";
        const QString heAdts = dir.filePath(name + QStringLiteral("-he.aac"));
        ASSERT_TRUE(Fixtures::writeFile(heAdts, he));
        const QString heM4b = dir.filePath(name + QStringLiteral("-he.m4b"));
        const QString lcM4b = dir.filePath(name + QStringLiteral("-lc.m4b"));
        ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-i"), heAdts, QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-f"),
                                      QStringLiteral("ipod"), heM4b}));
        ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-i"), lc, QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-f"),
                                      QStringLiteral("ipod"), lcM4b}));

        // The signalling is implicit: the stored configuration is plain AAC-LC.
        const auto config = storedConfig(heM4b);
        ASSERT_TRUE(config.has_value()) << c.name;
        EXPECT_EQ(config->codec(), QStringLiteral("aac-lc")) << c.name;
        EXPECT_EQ(config->sampleRate, 22050) << c.name;
        EXPECT_FALSE(config->syncExtensionPresent) << c.name;

        // Unchanged, the stream is LC; with SBR in its blocks, HE-AAC.
        EXPECT_EQ(AacDecodedProfile::of(lcM4b), QStringLiteral("aac-lc")) << c.name;
        EXPECT_EQ(AacDecodedProfile::of(heAdts), QStringLiteral("he-aac")) << c.name;
        EXPECT_EQ(AacDecodedProfile::of(heM4b), QStringLiteral("he-aac")) << c.name;
        EXPECT_EQ(LibavAudioInspector().inspect(lcM4b).codec, QStringLiteral("aac-lc")) << c.name;
        const AudioSourceFormat f = LibavAudioInspector().inspect(heM4b);
        EXPECT_EQ(f.codec, QStringLiteral("he-aac")) << c.name;
        EXPECT_EQ(f.channels, c.channels) << c.name;
    }
}
