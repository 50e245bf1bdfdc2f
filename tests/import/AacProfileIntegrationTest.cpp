// AAC-LC at bitrates that look like HE-AAC from outside (64 kb/s stereo,
// 32 kb/s mono) is recognised as LC by decoding its first frames, so a
// book of it can be copied rather than re-encoded.
#include "import/probe/AacDecodedProfile.h"
#include "import/probe/LibavAudioInspector.h"
#include "support/Fixtures.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;

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
