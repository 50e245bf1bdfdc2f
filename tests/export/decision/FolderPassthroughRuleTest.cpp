#include "export/decision/FolderPassthroughRule.h"

#include <gtest/gtest.h>

using namespace folivox;
using Verdict = FolderPassthroughRule::Verdict;

namespace {

ChapterInput oneFile(const QString& path, double start, double duration, bool whole)
{
    ChapterInput c;
    c.title = QStringLiteral("Chapter");
    c.files = {QUrl::fromLocalFile(path)};
    c.timeRange = MediaTimeRange{start, duration};
    c.wholeFileCandidate = whole;
    return c;
}

ExportSettings output(OutputFormat format)
{
    ExportSettings s;
    s.outputFormat = format;
    return s;
}

const FormatProbe kMP3{QStringLiteral("mp3"), 128000, 44100, 2, 0.0};
const FormatProbe kAAC{QStringLiteral("aac-lc"), 64000, 44100, 2, 0.0};

} // namespace

TEST(FolderPassthroughRuleTest, AWholeFileAlreadyInTheTargetFormatIsCopied)
{
    const auto mp3 = oneFile(QStringLiteral("/b/01.mp3"), 0, 300, true);
    EXPECT_EQ(FolderPassthroughRule::judge(mp3, kMP3, output(OutputFormat::mp3)),
              Verdict::copy(QUrl::fromLocalFile(QStringLiteral("/b/01.mp3"))));
    for (const char* name : {"/b/01.m4a", "/b/01.M4B", "/b/01.mp4"}) {
        const auto c = oneFile(QString::fromLatin1(name), 0, 300, true);
        EXPECT_EQ(FolderPassthroughRule::judge(c, kAAC, output(OutputFormat::m4a)).kind, Verdict::Kind::copy) << name;
    }
}

TEST(FolderPassthroughRuleTest, AnotherCodecOrContainerIsEncoded)
{
    const auto aacInMp3Name = oneFile(QStringLiteral("/b/01.mp3"), 0, 300, true);
    EXPECT_EQ(FolderPassthroughRule::judge(aacInMp3Name, kAAC, output(OutputFormat::mp3)).kind, Verdict::Kind::refuse);
    EXPECT_EQ(FolderPassthroughRule::judge(aacInMp3Name, kMP3, output(OutputFormat::m4a)).kind, Verdict::Kind::refuse);
    // Raw ADTS AAC cannot become an .m4a by copying the file.
    const auto adts = oneFile(QStringLiteral("/b/01.aac"), 0, 300, true);
    const Verdict v = FolderPassthroughRule::judge(adts, kAAC, output(OutputFormat::m4a));
    EXPECT_EQ(v.kind, Verdict::Kind::refuse);
    EXPECT_EQ(v.reason, QStringLiteral("source is aac-lc in .aac, not the M4A output format"));
    // HE-AAC settings do not copy AAC-LC files.
    ExportSettings he = output(OutputFormat::m4a);
    he.codec = AudioCodec::heAAC;
    EXPECT_EQ(FolderPassthroughRule::judge(oneFile(QStringLiteral("/b/1.m4a"), 0, 300, true), kAAC, he).kind,
              Verdict::Kind::refuse);
    EXPECT_EQ(FolderPassthroughRule::judge(oneFile(QStringLiteral("/b/1.m4a"), 0, 300, true), std::nullopt,
                                           output(OutputFormat::m4a))
                  .reason,
              QStringLiteral("source format unknown"));
}

TEST(FolderPassthroughRuleTest, SettingsThatChangeTheAudioAreEncoded)
{
    const auto c = oneFile(QStringLiteral("/b/01.mp3"), 0, 300, true);
    ExportSettings s = output(OutputFormat::mp3);
    s.channels = ChannelSetting::mono;
    EXPECT_EQ(FolderPassthroughRule::judge(c, kMP3, s).reason, QStringLiteral("channel count differs from source"));
    s = output(OutputFormat::mp3);
    s.sampleRate = SampleRateOption::hz22050;
    EXPECT_EQ(FolderPassthroughRule::judge(c, kMP3, s).reason, QStringLiteral("sample rate differs from source"));
    s = output(OutputFormat::mp3);
    s.cbrBitrateKbps = 64;
    EXPECT_EQ(FolderPassthroughRule::judge(c, kMP3, s).reason,
              QStringLiteral("bitrate reduction (source 128 kbps → target 64 kbps)"));
    s = output(OutputFormat::mp3);
    s.passthroughPolicy = PassthroughPolicy::disabled;
    EXPECT_EQ(FolderPassthroughRule::judge(c, kMP3, s).reason, QStringLiteral("policy disabled"));
    // Matching explicit settings still copy.
    s = output(OutputFormat::mp3);
    s.channels = ChannelSetting::stereo;
    s.sampleRate = SampleRateOption::hz44100;
    EXPECT_EQ(FolderPassthroughRule::judge(c, kMP3, s).kind, Verdict::Kind::copy);
}

TEST(FolderPassthroughRuleTest, PartsOfFilesAndSeveralFilesAreEncoded)
{
    const ExportSettings s = output(OutputFormat::mp3);
    EXPECT_EQ(FolderPassthroughRule::judge(oneFile(QStringLiteral("/b/1.mp3"), 12.5, 100, false), kMP3, s).reason,
              QStringLiteral("chapter starts 12.500 s into its file"));

    ChapterInput two;
    two.files = {QUrl::fromLocalFile(QStringLiteral("/b/1.mp3")), QUrl::fromLocalFile(QStringLiteral("/b/2.mp3"))};
    two.segmentRanges = std::vector<MediaTimeRange>{{0, 10}, {0, 10}};
    two.segmentFullTrack = std::vector<bool>{true, true};
    EXPECT_EQ(FolderPassthroughRule::judge(two, kMP3, s).reason, QStringLiteral("chapter spans 2 files"));
}

TEST(FolderPassthroughRuleTest, AChapterFromTheStartIsCopiedWhenItsFileProvesToBeThatLong)
{
    const ExportSettings s = output(OutputFormat::mp3);
    const QUrl url = QUrl::fromLocalFile(QStringLiteral("/b/1.mp3"));
    // Length unknown: the strategy checks it.
    EXPECT_EQ(FolderPassthroughRule::judge(oneFile(QStringLiteral("/b/1.mp3"), 0, 250.0, false), kMP3, s),
              Verdict::copyIfWholeFile(url, 250.0));
    // Measured: it decides.
    FormatProbe measured = kMP3;
    measured.duration = 250.05;
    EXPECT_EQ(FolderPassthroughRule::judge(oneFile(QStringLiteral("/b/1.mp3"), 0, 250.0, false), measured, s),
              Verdict::copy(url));
    measured.duration = 300.0;
    const Verdict shorter = FolderPassthroughRule::judge(oneFile(QStringLiteral("/b/1.mp3"), 0, 250.0, true), measured, s);
    EXPECT_EQ(shorter.kind, Verdict::Kind::refuse);
    EXPECT_EQ(shorter.reason, QStringLiteral("chapter ends 50.000 s before its file does"));
}
