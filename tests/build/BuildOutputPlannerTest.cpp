// Where a build writes and what it refuses, on real folders.
#include "build/BuildFailure.h"
#include "build/BuildOutputPlanner.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

std::optional<BuildFailure::Kind> refusal(std::optional<OutputFormat> asked, const QString& output)
{
    try {
        BuildOutputPlanner::reconcileFormat(asked, output);
        return std::nullopt;
    } catch (const BuildFailure& f) {
        return f.kind();
    }
}

} // namespace

TEST(BuildOutputPlanner, TheOutputsExtensionSetsOrMustMatchTheFormat)
{
    EXPECT_EQ(BuildOutputPlanner::reconcileFormat(std::nullopt, QStringLiteral("x/Book.M4B")), OutputFormat::m4b);
    EXPECT_EQ(BuildOutputPlanner::reconcileFormat(OutputFormat::mp3, QStringLiteral("x/Book")), OutputFormat::mp3);
    EXPECT_EQ(BuildOutputPlanner::reconcileFormat(std::nullopt, QStringLiteral("x/Saga Vol.1")), OutputFormat::m4b);
    EXPECT_EQ(BuildOutputPlanner::reconcileFormat(std::nullopt, QStringLiteral("Mr. Smith Goes")), OutputFormat::m4b);
    EXPECT_EQ(BuildOutputPlanner::reconcileFormat(OutputFormat::m4a, std::nullopt), OutputFormat::m4a);
    EXPECT_EQ(refusal(OutputFormat::mp3, QStringLiteral("Book.m4b")), BuildFailure::Kind::usage);
    EXPECT_EQ(refusal(std::nullopt, QStringLiteral("Book.mp3")), BuildFailure::Kind::usage);
    EXPECT_EQ(refusal(OutputFormat::mp3, QStringLiteral("Book.mp3")), BuildFailure::Kind::usage);
    EXPECT_EQ(refusal(std::nullopt, QStringLiteral("notes.txt")), BuildFailure::Kind::usage);
    // A folder called "Book.v2" is fine for per-chapter files.
    EXPECT_EQ(refusal(OutputFormat::mp3, QStringLiteral("Book.v2")), std::nullopt);
}

TEST(BuildOutputPlanner, PlansTheBookInsideAFolderAndAddsTheExtension)
{
    QTemporaryDir dir;
    EXPECT_EQ(BuildOutputPlanner::plan(dir.path(), QStringLiteral("A/B: C"), OutputFormat::m4b),
              QDir(dir.path()).filePath(BuildOutputPlanner::defaultOutput(QStringLiteral("A/B: C"), OutputFormat::m4b, dir.path()).section(u'/', -1)));
    EXPECT_EQ(BuildOutputPlanner::plan(dir.filePath(QStringLiteral("Saga Vol.1")), QStringLiteral("t"), OutputFormat::m4b),
              dir.filePath(QStringLiteral("Saga Vol.1.m4b")));
    EXPECT_EQ(BuildOutputPlanner::plan(dir.filePath(QStringLiteral("x.m4b")), QStringLiteral("t"), OutputFormat::m4b),
              dir.filePath(QStringLiteral("x.m4b")));
    EXPECT_EQ(BuildOutputPlanner::plan(dir.filePath(QStringLiteral("chapters")), QStringLiteral("t"), OutputFormat::mp3),
              dir.filePath(QStringLiteral("chapters")));
}

TEST(BuildOutputPlanner, ChecksNameLengthFoldersAndWhatStandsAtTheOutput)
{
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    ASSERT_TRUE(test::Fixtures::writeFile(dir.filePath(QStringLiteral("file")), "x"));
    const auto kindOf = [](const QString& path, OutputFormat format) -> std::optional<BuildFailure::Kind> {
        try {
            BuildOutputPlanner::check(path, format);
            return std::nullopt;
        } catch (const BuildFailure& f) {
            EXPECT_EQ(f.file(), path);
            return f.kind();
        }
    };
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("new.m4b")), OutputFormat::m4b), std::nullopt);
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("file")), OutputFormat::m4b), std::nullopt); // replaced when built
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("folder")), OutputFormat::mp3), std::nullopt);
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("folder")), OutputFormat::m4b), BuildFailure::Kind::failed);
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("file")), OutputFormat::mp3), BuildFailure::Kind::failed);
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("none/b.m4b")), OutputFormat::m4b), BuildFailure::Kind::failed);
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("file/b.m4b")), OutputFormat::m4b), BuildFailure::Kind::failed);
    EXPECT_EQ(kindOf(dir.filePath(QStringLiteral("tab\there.m4b")), OutputFormat::m4b), BuildFailure::Kind::usage);
    // 242 bytes of base name: "<base>.chapters.txt" is 255 and fits; one more does not.
    EXPECT_EQ(kindOf(dir.filePath(QString(240, u'a') + QStringLiteral(".m4b")), OutputFormat::m4b), std::nullopt);
    EXPECT_EQ(kindOf(dir.filePath(QString(243, u'a') + QStringLiteral(".m4b")), OutputFormat::m4b), BuildFailure::Kind::usage);
    // Multi-byte names count in bytes: 122 two-byte letters are 244 bytes.
    EXPECT_EQ(kindOf(dir.filePath(QString(122, QChar(0xe9)) + QStringLiteral(".m4b")), OutputFormat::m4b), BuildFailure::Kind::usage);
}
