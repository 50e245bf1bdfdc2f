// `folivox build --chapters` against `folivox chapters --audio`, on a real
// tone made by ffmpeg and chapter files written here: both must apply the
// same chapters, and a chapter file that can't be used is refused by name.
#include "import/FolivoxCli.h"
#include "support/Fixtures.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace folivox::test;

namespace {

struct Applied {
    QString title;
    double start = 0;
};

std::vector<Applied> chaptersOf(const QJsonArray& rows)
{
    std::vector<Applied> out;
    for (const auto& v : rows)
        out.push_back({v.toObject().value("title").toString(), v.toObject().value("start").toDouble()});
    return out;
}

class ChapterFileBuildTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QFileInfo(folivoxProgram()).isExecutable()) << folivoxProgram().toStdString();
        ASSERT_TRUE(shared.isValid());
    }
    QString path(const QString& name) const { return shared.path(name); }
    SharedTestFolder shared;
};

} // namespace

TEST_F(ChapterFileBuildTest, BuildAppliesWhatTheChaptersCommandReports)
{
    ASSERT_TRUE(Fixtures::tone(path("book.m4a"), 30.0, {"-c:a", "aac", "-b:a", "64k"}));
    // Out of order, with a repeated start and a negative one.
    ASSERT_TRUE(Fixtures::writeFile(path("book.chapters.txt"), "00:00:00.000 One\n00:00:20.000 Three\n"
                                                               "00:00:10.000 Two\n00:00:10.000 Two again\n"
                                                               "-00:00:05.000 Before\n"));
    const CliOptions options = shared.options(false);
    const CliRun report = runFolivox({"chapters", "--json", path("book.chapters.txt"), "--audio", path("book.m4a")}, options);
    ASSERT_EQ(report.exitCode, 0) << report.err.toStdString();
    const std::vector<Applied> expected = chaptersOf(QJsonDocument::fromJson(report.out.toUtf8()).object().value("applied").toArray());
    ASSERT_EQ(expected.size(), 3u) << report.out.toStdString();

    const CliRun build = runFolivox({"build", "--json", "--quiet", "--chapters", path("book.chapters.txt"), "-o",
                                     path("out/book.m4b"), path("book.m4a")},
                                    options);
    ASSERT_EQ(build.exitCode, 0) << build.err.toStdString();
    const QJsonObject doc = QJsonDocument::fromJson(build.out.toUtf8()).object();
    const std::vector<Applied> built = chaptersOf(doc.value("chapters").toArray());
    ASSERT_EQ(built.size(), expected.size()) << build.out.toStdString();
    for (std::size_t i = 0; i < built.size(); ++i) {
        EXPECT_EQ(built[i].title, expected[i].title);
        // Encoded chapters land on whole AAC frames.
        EXPECT_NEAR(built[i].start, expected[i].start, 0.2) << built[i].title.toStdString();
    }
    EXPECT_EQ(doc.value("chapterSource").toString(), QStringLiteral("book.chapters.txt"));

    // Without --quiet the build says what it left out, by file, and what to do.
    const CliRun noisy = runFolivox({"build", "--chapters", path("book.chapters.txt"), "-o", path("out/book2.m4b"),
                                     path("book.m4a")},
                                    options);
    ASSERT_EQ(noisy.exitCode, 0) << noisy.err.toStdString();
    EXPECT_TRUE(noisy.err.contains(QStringLiteral("book.chapters.txt: Negative timestamp removed: Before")))
        << noisy.err.toStdString();
    EXPECT_TRUE(noisy.err.contains(QStringLiteral("book.chapters.txt: Duplicate timestamp at 0:10.000")));
    EXPECT_TRUE(noisy.err.contains(QStringLiteral("correct them in the file")));
}

TEST_F(ChapterFileBuildTest, ChapterFilesThatCantBeReadAreRefusedByNameAtOnce)
{
    ASSERT_TRUE(Fixtures::tone(path("book.m4a"), 5.0, {"-c:a", "aac", "-b:a", "64k"}));
    ASSERT_EQ(::mkfifo(QFile::encodeName(path("pipe.chapters.txt")).constData(), 0644), 0);
    ASSERT_TRUE(QDir(shared.path({})).mkdir(QStringLiteral("folder.cue")));
    ASSERT_TRUE(Fixtures::writeFile(path("locked.cue"), "FILE \"book.m4a\" MP4\nTRACK 01 AUDIO\nINDEX 01 00:00:00\n"));
    ASSERT_EQ(::chmod(QFile::encodeName(path("locked.cue")).constData(), 0), 0);

    struct Case {
        const char* file;
        const char* says;
    };
    for (const Case& c : {Case{"pipe.chapters.txt", "is not a regular file (a pipe, socket or device)"},
                          Case{"folder.cue", "is a folder"}, Case{"locked.cue", "permission denied"}}) {
        SCOPED_TRACE(c.file);
        // Unprivileged, so that the locked file is locked even for a root test run.
        CliOptions options = shared.options(true);
        options.timeoutMs = 60'000;
        const CliRun build = runFolivox({"build", "--quiet", "--chapters", path(c.file), "-o", path("out/x.m4b"),
                                         path("book.m4a")},
                                        options);
        ASSERT_TRUE(build.finished) << "the build hung on " << c.file;
        EXPECT_EQ(build.exitCode, 1);
        EXPECT_TRUE(build.err.contains(QString::fromLatin1(c.file))) << build.err.toStdString();
        EXPECT_TRUE(build.err.contains(QString::fromLatin1(c.says))) << build.err.toStdString();
        EXPECT_FALSE(QFileInfo::exists(path("out/x.m4b")));

        const CliRun chapters = runFolivox({"chapters", path(c.file)}, options);
        ASSERT_TRUE(chapters.finished);
        EXPECT_EQ(chapters.exitCode, 1);
        EXPECT_TRUE(chapters.err.contains(QString::fromLatin1(c.says))) << chapters.err.toStdString();
    }
}

TEST_F(ChapterFileBuildTest, ChaptersThatCantBeAppliedFailTheBuildWithTheReason)
{
    ASSERT_TRUE(Fixtures::tone(path("book.m4a"), 5.0, {"-c:a", "aac", "-b:a", "64k"}));
    // Plain text is held to strict rules: chapters under 5 s are refused.
    ASSERT_TRUE(Fixtures::writeFile(path("notes.txt"), "[0:00] Intro\n[0:02] Body\n[0:04] End\n"));
    const CliOptions options = shared.options(false);
    const CliRun report = runFolivox({"chapters", path("notes.txt"), "--audio", path("book.m4a")}, options);
    EXPECT_EQ(report.exitCode, 1);
    const CliRun build = runFolivox({"build", "--quiet", "--chapters", path("notes.txt"), "-o", path("out/x.m4b"),
                                     path("book.m4a")},
                                    options);
    EXPECT_EQ(build.exitCode, 1);
    EXPECT_TRUE(build.err.contains(path("notes.txt"))) << build.err.toStdString();
    EXPECT_TRUE(build.err.contains(QStringLiteral("chapters must be at least 5 seconds long"))) << build.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(path("out/x.m4b")));
}
