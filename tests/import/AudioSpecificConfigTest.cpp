#include "import/probe/AudioSpecificConfig.h"

#include <gtest/gtest.h>

using folivox::AudioSpecificConfig;

namespace {

// Packs a string of '0'/'1' (spaces ignored) into bytes, most significant bit
// first, padding the last byte with zeros.
QByteArray bits(const char* text)
{
    QByteArray out;
    int count = 0;
    unsigned char cur = 0;
    for (const char* p = text; *p; ++p) {
        if (*p == ' ')
            continue;
        cur = static_cast<unsigned char>((cur << 1) | (*p == '1' ? 1 : 0));
        if (++count % 8 == 0) {
            out.append(static_cast<char>(cur));
            cur = 0;
        }
    }
    if (count % 8)
        out.append(static_cast<char>(cur << (8 - count % 8)));
    return out;
}

} // namespace

TEST(AudioSpecificConfigTest, PlainLowComplexityStereo)
{
    // type 2, index 4 (44100), channels 2, GASpecificConfig all zero.
    const auto c = AudioSpecificConfig::parse(bits("00010 0100 0010 0 0 0"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->objectType, 2);
    EXPECT_EQ(c->sampleRate, 44100);
    EXPECT_EQ(c->channelConfiguration, 2);
    EXPECT_FALSE(c->syncExtensionPresent);
    EXPECT_FALSE(c->signalsNoSBR());
    EXPECT_EQ(c->codec(), "aac-lc");
    // The two bytes every AAC-LC 44.1 kHz stereo file carries.
    EXPECT_EQ(bits("00010 0100 0010 0 0 0"), QByteArray::fromHex("1210"));
}

TEST(AudioSpecificConfigTest, EscapedObjectTypeAndExplicitRate)
{
    // 31 escapes to 32 + 10 = 42 (USAC); index 3 (48000); channels 1.
    auto c = AudioSpecificConfig::parse(bits("11111 001010 0011 0001"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->objectType, 42);
    EXPECT_EQ(c->sampleRate, 48000);
    EXPECT_EQ(c->channelConfiguration, 1);
    EXPECT_EQ(c->codec(), "xhe-aac");

    // 31 with six zero bits is type 32, which is no codec of ours.
    c = AudioSpecificConfig::parse(bits("11111 000000 0011 0001"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->objectType, 32);
    EXPECT_EQ(c->codec(), "aac");

    // Index 15: a 24-bit rate follows (22000 = 0x0055F0), then channels 2.
    c = AudioSpecificConfig::parse(bits("00010 1111 000000000101010111110000 0010 0 0 0"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->samplingFrequencyIndex, 15);
    EXPECT_EQ(c->sampleRate, 22000);
    EXPECT_EQ(c->channelConfiguration, 2);
    EXPECT_EQ(c->codec(), "aac-lc");
}

TEST(AudioSpecificConfigTest, RejectsReservedIndexesAndShortInput)
{
    EXPECT_FALSE(AudioSpecificConfig::parse(bits("00010 1101 0010 000")));  // index 13
    EXPECT_FALSE(AudioSpecificConfig::parse(bits("00010 1110 0010 000")));  // index 14
    EXPECT_FALSE(AudioSpecificConfig::parse(QByteArray()));
    EXPECT_FALSE(AudioSpecificConfig::parse(QByteArray::fromHex("12")));    // channels cut off
    // An explicit rate cut short.
    EXPECT_FALSE(AudioSpecificConfig::parse(bits("00010 1111 0000000001")));
    // An explicit SBR extension index that is reserved.
    EXPECT_FALSE(AudioSpecificConfig::parse(bits("00101 0110 0010 1101 00010")));
}

TEST(AudioSpecificConfigTest, ExplicitSBRAndPSSignalling)
{
    // type 5, core index 6 (24000), channels 2, extension index 3 (48000), inner type 2.
    auto c = AudioSpecificConfig::parse(bits("00101 0110 0010 0011 00010"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->objectType, 5);
    EXPECT_EQ(c->sampleRate, 24000);
    EXPECT_EQ(c->extensionSampleRate, 48000);
    EXPECT_EQ(c->innerObjectType, 2);
    EXPECT_EQ(c->codec(), "he-aac");

    // type 29 (SBR + PS), mono core at 22050 (index 7), extension 44100 (index 4).
    c = AudioSpecificConfig::parse(bits("11101 0111 0001 0100 00010"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->objectType, 29);
    EXPECT_EQ(c->sampleRate, 22050);
    EXPECT_EQ(c->extensionSampleRate, 44100);
    EXPECT_EQ(c->codec(), "he-aacv2");

    // The extension rate may be explicit too.
    c = AudioSpecificConfig::parse(bits("00101 0110 0010 1111 000000001011101110000000 00010"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->extensionSampleRate, 48000);
}

TEST(AudioSpecificConfigTest, BackwardCompatibleSBRAndPSSignalling)
{
    // Core type 2 at 24000 stereo, GASpecificConfig 000, then sync 0x2B7,
    // extension type 5, SBR flag 1, extension index 3 (48000).
    auto c = AudioSpecificConfig::parse(bits("00010 0110 0010 000 01010110111 00101 1 0011"));
    ASSERT_TRUE(c);
    EXPECT_EQ(c->objectType, 2);
    EXPECT_TRUE(c->syncExtensionPresent);
    EXPECT_EQ(c->sbrPresentFlag, true);
    EXPECT_EQ(c->extensionSampleRate, 48000);
    EXPECT_FALSE(c->signalsNoSBR());
    EXPECT_EQ(c->codec(), "he-aac");

    // The same followed by the PS sync 0x548 with its flag set.
    c = AudioSpecificConfig::parse(bits("00010 0110 0001 000 01010110111 00101 1 0011 10101001000 1"));
    ASSERT_TRUE(c);
    EXPECT_TRUE(c->psPresentFlag);
    EXPECT_EQ(c->codec(), "he-aacv2");

    // PS sync present but its flag clear: still plain HE-AAC.
    c = AudioSpecificConfig::parse(bits("00010 0110 0001 000 01010110111 00101 1 0011 10101001000 0"));
    ASSERT_TRUE(c);
    EXPECT_FALSE(c->psPresentFlag);
    EXPECT_EQ(c->codec(), "he-aac");

    // SBR flag 0: the configuration says outright that there is no SBR
    // (FFmpeg's own AAC encoder writes exactly this: 12 10 56 e5 00).
    c = AudioSpecificConfig::parse(QByteArray::fromHex("121056e500"));
    ASSERT_TRUE(c);
    EXPECT_TRUE(c->syncExtensionPresent);
    EXPECT_EQ(c->sbrPresentFlag, false);
    EXPECT_TRUE(c->signalsNoSBR());
    EXPECT_EQ(c->codec(), "aac-lc");
}

TEST(AudioSpecificConfigTest, GASpecificConfigFieldsShiftTheSyncExtension)
{
    // frame length flag 1, depends on core coder 1 with a 14-bit delay of
    // 0x1ABC, extension flag 0; the sync extension follows the delay.
    auto c = AudioSpecificConfig::parse(bits("00010 0110 0010 1 1 01101010111100 0 01010110111 00101 1 0011"));
    ASSERT_TRUE(c);
    EXPECT_TRUE(c->frameLengthFlag);
    EXPECT_TRUE(c->dependsOnCoreCoder);
    EXPECT_EQ(c->coreCoderDelay, 0x1ABC);
    EXPECT_TRUE(c->syncExtensionPresent);
    EXPECT_EQ(c->codec(), "he-aac");

    // Fewer than 16 bits left after the GASpecificConfig: no sync extension
    // is looked for, and the short tail is no error.
    c = AudioSpecificConfig::parse(bits("00010 0110 0010 000 01010110"));
    ASSERT_TRUE(c);
    EXPECT_FALSE(c->syncExtensionPresent);
    EXPECT_EQ(c->codec(), "aac-lc");

    // Something other than 0x2B7: ignored.
    c = AudioSpecificConfig::parse(bits("00010 0110 0010 000 01010110110 00101 1 0011"));
    ASSERT_TRUE(c);
    EXPECT_FALSE(c->syncExtensionPresent);
    EXPECT_FALSE(c->sbrPresentFlag.has_value());

    // A sync extension of another type (not 5) says nothing about SBR.
    c = AudioSpecificConfig::parse(bits("00010 0110 0010 000 01010110111 10110 1 0011"));
    ASSERT_TRUE(c);
    EXPECT_TRUE(c->syncExtensionPresent);
    EXPECT_FALSE(c->sbrPresentFlag.has_value());
    EXPECT_EQ(c->codec(), "aac-lc");
}
