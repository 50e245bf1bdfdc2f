#include "export/decision/FFmpegEncodingStrategy.h"
#include "export/decision/SourceFileGroup.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

QUrl f(const char* path)
{
    return QUrl::fromLocalFile(QString::fromLatin1(path));
}

} // namespace

TEST(SourceFileGroupTest, FilesOfOneFolderHaveThatFolderAsTheirRoot)
{
    const auto g = SourceFileGroup::fromFiles({f("/books/Dune/01.mp3"), f("/books/Dune/02.mp3"), f("/books/Dune/01.mp3")});
    EXPECT_EQ(g.root, f("/books/Dune"));
    EXPECT_FALSE(g.isSynthesizedRoot);
    EXPECT_EQ(g.files, (QList<QUrl>{f("/books/Dune/01.mp3"), f("/books/Dune/02.mp3")}));
    EXPECT_EQ(g.relativePath(f("/books/Dune/02.mp3")), QStringLiteral("02.mp3"));
}

TEST(SourceFileGroupTest, FilesOfSeveralFoldersGetTheirCommonAncestorAsAMadeUpRoot)
{
    const auto g = SourceFileGroup::fromFiles(
        {f("/books/Dune/Disc 1/01.mp3"), f("/books/Dune/Disc 2/01.mp3"), f("/books/Dune/extra.mp3")});
    EXPECT_EQ(g.root, f("/books/Dune"));
    EXPECT_TRUE(g.isSynthesizedRoot);
    EXPECT_EQ(g.relativePath(f("/books/Dune/Disc 2/01.mp3")), QStringLiteral("Disc 2/01.mp3"));
    EXPECT_EQ(g.relativePath(f("/elsewhere/x.mp3")), QStringLiteral("/elsewhere/x.mp3"));
    // Nothing shared but the file system's root; folder names that only share a prefix are not shared.
    const auto apart = SourceFileGroup::fromFiles({f("/books/a/1.mp3"), f("/bookshelf/1.mp3")});
    EXPECT_EQ(apart.root, f("/"));
    EXPECT_TRUE(apart.isSynthesizedRoot);
    EXPECT_EQ(SourceFileGroup::fromJson(g.toJson()), g);
    EXPECT_TRUE(SourceFileGroup::fromFiles({}).root.isEmpty());
}

TEST(SourceFileGroupTest, GroupsByFolderKeepFirstUseOrder)
{
    const auto groups = SourceFileGroup::byFolder(
        {f("/b/2/a.mp3"), f("/b/1/a.mp3"), f("/b/2/b.mp3"), f("/b/1/a.mp3")});
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0].root, f("/b/2"));
    EXPECT_EQ(groups[0].files, (QList<QUrl>{f("/b/2/a.mp3"), f("/b/2/b.mp3")}));
    EXPECT_EQ(groups[1].root, f("/b/1"));
    EXPECT_EQ(groups[1].files, QList<QUrl>{f("/b/1/a.mp3")});
    EXPECT_FALSE(groups[1].isSynthesizedRoot);
}

TEST(FFmpegEncodingStrategyTest, CopyOnlyWhatNeedsNoChangeAndCapLowSources)
{
    const FormatProbe aac64{QStringLiteral("aac-lc"), 64000, 44100, 2, 0};
    ExportSettings s; // AAC-LC, 128 kbps
    EXPECT_EQ(chooseFFmpegEncodingStrategy(aac64, s, true), FFmpegEncodingStrategy::copy);
    // Not allowed to copy: a 64 kbps source is not blown up to 128.
    EXPECT_EQ(chooseFFmpegEncodingStrategy(aac64, s, false), FFmpegEncodingStrategy::qualityCapped);
    EXPECT_EQ(cappedBitrateKbps(aac64, s), 64);
    s.channels = ChannelSetting::mono;
    EXPECT_EQ(chooseFFmpegEncodingStrategy(aac64, s, true), FFmpegEncodingStrategy::qualityCapped);

    // A source above the target is encoded at the target.
    const FormatProbe mp3{QStringLiteral("mp3"), 192000, 44100, 2, 0};
    EXPECT_EQ(chooseFFmpegEncodingStrategy(mp3, ExportSettings{}, true), FFmpegEncodingStrategy::transcode);
    EXPECT_FALSE(cappedBitrateKbps(mp3, ExportSettings{}));
    ExportSettings mp3Out;
    mp3Out.outputFormat = OutputFormat::mp3;
    mp3Out.cbrBitrateKbps = 192;
    EXPECT_EQ(chooseFFmpegEncodingStrategy(mp3, mp3Out, true), FFmpegEncodingStrategy::copy);

    // Lossless and unknown sources are never capped or copied.
    const FormatProbe flac{QStringLiteral("flac"), 90000, 44100, 2, 0};
    EXPECT_EQ(chooseFFmpegEncodingStrategy(flac, ExportSettings{}, true), FFmpegEncodingStrategy::transcode);
    EXPECT_EQ(chooseFFmpegEncodingStrategy(std::nullopt, ExportSettings{}, true), FFmpegEncodingStrategy::transcode);
    ExportSettings keep;
    keep.keepSourceBitrate = true;
    EXPECT_FALSE(cappedBitrateKbps(aac64, keep));
    EXPECT_EQ(enumName(FFmpegEncodingStrategy::qualityCapped), QStringLiteral("qualityCapped"));
}
