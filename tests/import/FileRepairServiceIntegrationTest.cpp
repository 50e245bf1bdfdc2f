// FileRepairService on an MP3 made by ffmpeg whose frames the test spoils:
// the stretches re-encoded alone, and a cancel in the middle of the search
// for them.
#include "container/mp3/Mp3TestFiles.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "import/repair/FileRepairService.h"
#include "platform/Log.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;
using folivox::test::Mp3TestFiles;

namespace {

QStringList workFolders()
{
    return QDir(QDir::tempPath() + QStringLiteral("/FolivoxWork")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
}

} // namespace

TEST(FileRepairServiceIntegrationTest, StretchesAreReEncodedAloneAndACancelInTheSearchLeavesNothing)
{
    QTemporaryDir dir;
    // Long enough (over 4096 frames) for the search to report progress on
    // its way.
    const QByteArray clean =
        Mp3TestFiles::make(dir.filePath("clean.mp3"), 150.0, {"-b:a", "64k"}, 44100, 1, true);
    const auto frames = Mp3TestFiles::frames(clean);
    ASSERT_GT(frames.size(), 5000u);
    QByteArray bytes = clean;
    Mp3TestFiles::spoil(bytes, frames, 5000, 4, 11);
    ASSERT_TRUE(Fixtures::writeFile(dir.filePath("damaged.mp3"), bytes));
    FileRepairService service(std::make_shared<FFmpegWrapper>());

    // Cancelled as soon as the search reports: no copy, no work folder.
    {
        LogCapture log;
        ManualCancellationToken token;
        int reports = 0;
        const auto out = service.repairTo(dir.filePath("damaged.mp3"), dir.filePath("cancelled.mp3"), token,
                                          std::nullopt, std::nullopt, [&](double fraction) {
                                              ++reports;
                                              if (fraction < 1.0)
                                                  token.cancel();
                                          });
        EXPECT_FALSE(out.has_value());
        EXPECT_GE(reports, 1);
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("cancelled.mp3")));
        EXPECT_TRUE(workFolders().isEmpty()) << workFolders().join(' ').toStdString();
        EXPECT_TRUE(log.lines().join('\n').contains("[FileRepairService] Repair of damaged.mp3 cancelled"))
            << log.lines().join('\n').toStdString();
    }

    // Not cancelled: one stretch, around the spoiled frames, and the log
    // names it.
    {
        LogCapture log;
        ManualCancellationToken token;
        const auto out = service.repairTo(dir.filePath("damaged.mp3"), dir.filePath("fixed.mp3"), token);
        ASSERT_TRUE(out.has_value()) << log.lines().join('\n').toStdString();
        EXPECT_EQ(out->method, FileRepairService::Method::partialReencode);
        ASSERT_EQ(out->regions.size(), 1u);
        EXPECT_LE(out->regions[0].firstFrame, 4999);
        EXPECT_GE(out->regions[0].firstFrame + out->regions[0].frameCount, 5003);
        EXPECT_EQ(out->bytes, QFileInfo(dir.filePath("fixed.mp3")).size());
        EXPECT_EQ(Mp3TestFiles::frames(Fixtures::readFile(dir.filePath("fixed.mp3"))).size(), frames.size());
        EXPECT_TRUE(log.lines().join('\n').contains(
            QStringLiteral("[FileRepairService] Re-encoded frames %1–").arg(out->regions[0].firstFrame)))
            << log.lines().join('\n').toStdString();
        EXPECT_TRUE(workFolders().isEmpty());
    }
}
