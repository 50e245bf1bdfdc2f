// The build use-case on its own, as the queue and the window call it: real
// files in, a real book out, no command line in between.
#include "build/BuildFailure.h"
#include "build/BuildUseCase.h"
#include "process/ManualCancellationToken.h"
#include "support/Fixtures.h"
#include "support/MediaReaders.h"

#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

bool mp3(const QString& path, double seconds, int frequency)
{
    return Fixtures::tone(path, seconds,
                          {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k")},
                          44100, 1, frequency);
}

} // namespace

TEST(BuildUseCase, BuildsABookWithAChapterFileTagsAndProgressWithoutTheCommandLine)
{
    QTemporaryDir dir;
    ASSERT_TRUE(mp3(dir.filePath(QStringLiteral("in/a.mp3")), 3.0, 300));
    ASSERT_TRUE(mp3(dir.filePath(QStringLiteral("in/b.mp3")), 3.0, 500));
    ASSERT_TRUE(Fixtures::writeFile(dir.filePath(QStringLiteral("marks.txt")),
                                    "00:00:00.000 Start\n00:00:02.000 Middle\n00:00:04.500 End\n"));
    BuildRequest request;
    request.inputs = {dir.filePath(QStringLiteral("in"))};
    request.chapterFile = dir.filePath(QStringLiteral("marks.txt"));
    request.tags.title = QStringLiteral("Use Case");
    request.tags.author = QStringLiteral("A. Writer");
    request.settings.cbrBitrateKbps = 64;
    request.settings.keepSourceBitrate = false;
    request.output = dir.path(); // a folder: the book is named after its title
    std::atomic<int> progressCalls = 0;
    std::atomic<bool> sawExportPhase = false;
    BuildUseCase::Sinks sinks;
    sinks.progress = [&](const QString& phase, double) {
        ++progressCalls;
        if (!phase.startsWith(QStringLiteral("Importing")))
            sawExportPhase = true;
    };

    const BuildResult result = BuildUseCase().run(request, std::make_shared<ManualCancellationToken>(), sinks);

    const QString book = dir.filePath(QStringLiteral("Use Case.m4b"));
    EXPECT_EQ(result.outcome.outputPath, book);
    EXPECT_EQ(result.title, QStringLiteral("Use Case"));
    EXPECT_EQ(result.trackCount, 2);
    EXPECT_EQ(result.chapterSource, QStringLiteral("marks.txt"));
    ASSERT_EQ(result.outcome.chapters.size(), 3u);
    EXPECT_NEAR(result.outcome.chapters[2].start, 4.5, 0.1);
    EXPECT_NEAR(result.duration, 6.0, 0.15);
    EXPECT_GT(progressCalls.load(), 2);
    EXPECT_TRUE(sawExportPhase.load());
    const QJsonObject probe = test::MediaReaders::ffprobe(book);
    const QJsonObject tags = probe.value(QStringLiteral("format")).toObject().value(QStringLiteral("tags")).toObject();
    EXPECT_EQ(tags.value(QStringLiteral("title")).toString(), QStringLiteral("Use Case"));
    EXPECT_EQ(tags.value(QStringLiteral("artist")).toString(), QStringLiteral("A. Writer"));
    EXPECT_EQ(probe.value(QStringLiteral("chapters")).toArray().size(), 3);
}

// A token cancelled before the build starts its work gives a cancelled
// failure and no book.
TEST(BuildUseCase, ACancelledTokenEndsInACancelledFailureAndNoBook)
{
    QTemporaryDir dir;
    ASSERT_TRUE(mp3(dir.filePath(QStringLiteral("in/a.mp3")), 2.0, 300));
    BuildRequest request;
    request.inputs = {dir.filePath(QStringLiteral("in"))};
    request.output = dir.filePath(QStringLiteral("book.m4b"));
    auto token = std::make_shared<ManualCancellationToken>();
    token->cancel();
    try {
        BuildUseCase().run(request, token);
        FAIL() << "a cancelled build reported success";
    } catch (const BuildFailure& f) {
        EXPECT_EQ(f.kind(), BuildFailure::Kind::cancelled);
    }
    EXPECT_FALSE(QFileInfo::exists(request.output.value()));
}
