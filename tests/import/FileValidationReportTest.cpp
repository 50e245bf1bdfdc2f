#include "import/repair/FileValidationReport.h"

#include <QJsonArray>

#include <gtest/gtest.h>

using namespace folivox;
using Status = FileValidationReport::ValidationStatus;

namespace {

const char* kBook = "Input #0, mov,mp4,m4a,3gp,3g2,mj2, from 'book.m4b':\n"
                    "  Metadata:\n"
                    "    major_brand     : M4A \n"
                    "    compatible_brands: M4A isomiso2\n"
                    "    title           : Book\n"
                    "    artist          : Ann\n"
                    "  Duration: 00:10:00.00, start: 0.000000, bitrate: 70 kb/s\n"
                    "  Chapters:\n"
                    "    Chapter #0:0: start 0.000000, end 200.000000\n"
                    "      Metadata:\n"
                    "        title           : One\n"
                    "    Chapter #0:1: start 200.000000, end 420.500000\n"
                    "      Metadata:\n"
                    "        title           : Two\n"
                    "    Chapter #0:2: start 420.500000, end 600.000000\n"
                    "      Metadata:\n"
                    "        title           : Three\n"
                    "  Stream #0:0[0x1](und): Audio: aac (HE-AAC) (mp4a / 0x6134706D), 44100 Hz, stereo, fltp, "
                    "64 kb/s (default)\n"
                    "    Metadata:\n"
                    "      handler_name    : SoundHandler\n";

FileValidationReport::Expectation expectation()
{
    FileValidationReport::Expectation e;
    e.codec = QStringLiteral("he-aac");
    e.sampleRate = 44100;
    e.channels = 1;
    e.bitrate = 56000;
    e.duration = 597.0;
    e.chapters = {{"One", 200}, {"Two", 220.5}, {"Three", 179.5}};
    return e;
}

const FileValidationReport::ValidationCheck& find(const FileValidationReport& r, const QString& category)
{
    for (const auto& c : r.checks)
        if (c.category == category)
            return c;
    static FileValidationReport::ValidationCheck missing;
    ADD_FAILURE() << "no check " << category.toStdString();
    return missing;
}

} // namespace

TEST(FileValidationReportTest, ParsesChaptersAndMetadata)
{
    const auto chapters = FileValidationReport::parseChapters(kBook);
    ASSERT_EQ(chapters.size(), 3);
    EXPECT_EQ(chapters[1].title, "Two");
    EXPECT_DOUBLE_EQ(chapters[1].start, 200);
    EXPECT_DOUBLE_EQ(chapters[1].end, 420.5);
    const auto meta = FileValidationReport::parseMetadata(kBook);
    ASSERT_EQ(meta.size(), 4);
    EXPECT_EQ(meta[1].key, "compatible_brands");
    EXPECT_EQ(meta[2].key, "title");
    EXPECT_EQ(meta[2].value, "Book");
    EXPECT_EQ(meta[3].value, "Ann");
}

TEST(FileValidationReportTest, PassesAMatchingFileWithinTolerances)
{
    const auto r = FileValidationReport::fromFFmpegOutput("/out/book.m4b", 12345, expectation(), kBook);
    EXPECT_TRUE(r.passed());
    EXPECT_EQ(r.fileSize, 12345u);
    EXPECT_EQ(r.checks.size(), 8);
    EXPECT_EQ(find(r, "Codec").status, Status::pass);
    EXPECT_EQ(find(r, "Sample Rate").status, Status::pass);
    // Parametric stereo decodes to two channels from mono content.
    EXPECT_EQ(find(r, "Channels").status, Status::pass);
    EXPECT_EQ(find(r, "Channels").detail, "HE-AAC SBR: ffprobe reports 2ch but actual content is mono");
    EXPECT_EQ(find(r, "Bitrate").status, Status::pass);     // 64 within 20 % of 56
    EXPECT_EQ(find(r, "Duration").status, Status::pass);    // 600 within 5 s of 597
    EXPECT_EQ(find(r, "Chapter Count").status, Status::pass);
    EXPECT_EQ(find(r, "Chapter Titles").status, Status::pass);
    EXPECT_EQ(find(r, "Chapter Timestamps").status, Status::pass);
    ASSERT_EQ(r.chaptersComparison.size(), 3);
    EXPECT_TRUE(r.chaptersComparison[2].titleMatch);
    EXPECT_TRUE(r.chaptersComparison[2].durationMatch);
    EXPECT_DOUBLE_EQ(*r.chaptersComparison[1].actualDuration, 220.5);
    EXPECT_EQ(r.toJson().value("checks").toArray().size(), 8);
}

TEST(FileValidationReportTest, FailsOutsideTolerancesAndOnChapterFaults)
{
    auto e = expectation();
    e.bitrate = 96000;     // 64 is a third below
    e.duration = 590.0;    // 10 s off
    e.channels = 2;
    e.codec = QStringLiteral("mp3");
    e.chapters = {{"One", 200}, {"Deux", 220.5}};
    auto r = FileValidationReport::fromFFmpegOutput("/out/book.m4b", 1, e, kBook);
    EXPECT_FALSE(r.passed());
    EXPECT_EQ(find(r, "Codec").status, Status::fail);
    EXPECT_EQ(find(r, "Bitrate").status, Status::fail);
    EXPECT_EQ(find(r, "Duration").status, Status::fail);
    EXPECT_EQ(find(r, "Channels").status, Status::pass);
    EXPECT_EQ(find(r, "Chapter Count").status, Status::fail);
    EXPECT_EQ(find(r, "Chapter Titles").status, Status::fail);
    ASSERT_EQ(r.chaptersComparison.size(), 3);
    EXPECT_FALSE(r.chaptersComparison[1].titleMatch);
    EXPECT_EQ(r.chaptersComparison[1].actualTitle, "Two");
    EXPECT_FALSE(r.chaptersComparison[2].titleMatch);  // nothing was expected there

    // Exactly at the limits still passes: 20 % and 5 s.
    e = expectation();
    e.bitrate = 80000;
    e.duration = 605.0;
    r = FileValidationReport::fromFFmpegOutput("/out/book.m4b", 1, e, kBook);
    EXPECT_EQ(find(r, "Bitrate").status, Status::pass);
    EXPECT_EQ(find(r, "Duration").status, Status::pass);

    // Marks that go backwards, or start late.
    QString bad = QString::fromUtf8(kBook);
    bad.replace("Chapter #0:0: start 0.000000", "Chapter #0:0: start 3.000000");
    bad.replace("Chapter #0:2: start 420.500000", "Chapter #0:2: start 150.000000");
    r = FileValidationReport::fromFFmpegOutput("/out/book.m4b", 1, expectation(), bad);
    const auto& ts = find(r, "Chapter Timestamps");
    EXPECT_EQ(ts.status, Status::fail);
    ASSERT_TRUE(ts.detail);
    EXPECT_TRUE(ts.detail->contains("not increasing"));
    EXPECT_TRUE(ts.detail->contains("first chapter starts at 3.000 s"));
}

TEST(FileValidationReportTest, SaysWhatItCouldNotCheck)
{
    FileValidationReport::Expectation none;
    const auto r = FileValidationReport::fromFFmpegOutput("/out/book.m4b", 1, none, kBook);
    EXPECT_EQ(find(r, "Bitrate").status, Status::skipped);
    EXPECT_EQ(find(r, "Bitrate").detail, "No explicit bitrate configured");
    EXPECT_EQ(find(r, "Duration").status, Status::skipped);
    EXPECT_EQ(find(r, "Duration").detail, "No track durations available");
    EXPECT_EQ(find(r, "Codec").actual, "he-aac");
    // Chapters were found where none were expected.
    EXPECT_EQ(find(r, "Chapter Count").status, Status::fail);
}
