#include "process/FFmpegWrapper.h"
#include "process/FFmpegWrapperError.h"
#include "process/PathValidator.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {
QString refusal(const QString& path)
{
    try {
        PathValidator::validate(path);
    } catch (const FFmpegWrapperError& e) {
        EXPECT_EQ(e.kind(), FFmpegWrapperError::Kind::invalidPath);
        return e.description();
    }
    return {};
}
} // namespace

TEST(PathValidatorTest, EachOfTheFourChecksRefusesWithItsExactText)
{
    EXPECT_EQ(refusal(QStringLiteral("-i.mp3")), QStringLiteral("Invalid path: Path cannot start with dash: -i.mp3"));
    EXPECT_EQ(refusal(QStringLiteral("/tmp/a") + QChar(u'\0') + QStringLiteral("b.mp3")),
              QStringLiteral("Invalid path: Path cannot contain null bytes"));
    EXPECT_EQ(refusal(QStringLiteral("/books/../etc/passwd")),
              QStringLiteral("Invalid path: Path traversal detected: /books/../etc/passwd"));
    EXPECT_EQ(refusal(QStringLiteral("../up.mp3")), QStringLiteral("Invalid path: Path traversal detected: ../up.mp3"));
    EXPECT_EQ(refusal(QStringLiteral("/tmp/a\nb.mp3")),
              QStringLiteral("Invalid path: File path contains newline character: /tmp/a\nb.mp3"));
    EXPECT_EQ(refusal(QStringLiteral("/tmp/a\rb.mp3")),
              QStringLiteral("Invalid path: File path contains newline character: /tmp/a\rb.mp3"));
}

TEST(PathValidatorTest, ChecksRunInOrderAndTheFirstFailureIsReported)
{
    // A dash wins over a traversal and a newline; a null byte over a traversal.
    EXPECT_EQ(PathValidator::problem(QStringLiteral("-../x\n")), QStringLiteral("Path cannot start with dash: -../x\n"));
    EXPECT_EQ(PathValidator::problem(QStringLiteral("../x") + QChar(u'\0')), QStringLiteral("Path cannot contain null bytes"));
    EXPECT_EQ(PathValidator::problem(QStringLiteral("a/../b\n")), QStringLiteral("Path traversal detected: a/../b\n"));
}

TEST(PathValidatorTest, OrdinaryPathsPassIncludingDotsInsideNames)
{
    for (const char* ok : {"/Users/me/Books/Chapter 01.mp3", "relative/file.m4b", "/tmp/a..b/c...mp3",
                           "/tmp/..hidden/x.mp3", "/tmp/x-y/-leading-inside.mp3", "./here.mp3", "Bücher/Ω.m4a"}) {
        EXPECT_EQ(PathValidator::problem(QString::fromUtf8(ok)), std::nullopt) << ok;
    }
    EXPECT_NO_THROW(PathValidator::validateAll({QStringLiteral("/a.mp3"), QStringLiteral("/b.mp3")}));
    EXPECT_THROW(PathValidator::validateAll({QStringLiteral("/a.mp3"), QStringLiteral("-b.mp3")}), FFmpegWrapperError);
}

TEST(PathValidatorTest, RunArgumentsYieldEveryInputAndTheOutput)
{
    EXPECT_EQ(FFmpegWrapper::pathArguments({QStringLiteral("-y"), QStringLiteral("-i"), QStringLiteral("/a.mp3"),
                                            QStringLiteral("-i"), QStringLiteral("/cover.jpg"), QStringLiteral("-c:a"),
                                            QStringLiteral("aac"), QStringLiteral("/out.m4a")}),
              (QStringList{QStringLiteral("/a.mp3"), QStringLiteral("/cover.jpg"), QStringLiteral("/out.m4a")}));
    // "-" (stdout) and pipes are no files; an input given last is listed once.
    EXPECT_EQ(FFmpegWrapper::pathArguments({QStringLiteral("-i"), QStringLiteral("/a.mp3"), QStringLiteral("-f"),
                                            QStringLiteral("null"), QStringLiteral("-")}),
              QStringList{QStringLiteral("/a.mp3")});
    EXPECT_EQ(FFmpegWrapper::pathArguments({QStringLiteral("-nostdin"), QStringLiteral("-i"), QStringLiteral("/a.mp3")}),
              QStringList{QStringLiteral("/a.mp3")});
    EXPECT_EQ(FFmpegWrapper::pathArguments({QStringLiteral("-i"), QStringLiteral("/a.mp3"), QStringLiteral("pipe:1")}),
              QStringList{QStringLiteral("/a.mp3")});
    EXPECT_TRUE(FFmpegWrapper::pathArguments({}).isEmpty());
}

TEST(FFmpegWrapperErrorTest, TextsOfEveryKind)
{
    EXPECT_EQ(FFmpegWrapperError::binaryNotFound(QStringLiteral("/opt/ffmpeg")).description(),
              QStringLiteral("FFmpeg binary not found at: /opt/ffmpeg"));
    EXPECT_EQ(FFmpegWrapperError::invalidPath(QStringLiteral("Path cannot contain null bytes")).description(),
              QStringLiteral("Invalid path: Path cannot contain null bytes"));
    EXPECT_EQ(FFmpegWrapperError::stalled(120).description(),
              QStringLiteral("FFmpeg made no progress for 120 s and was stopped."));
    EXPECT_EQ(FFmpegWrapperError::stalled(2.5).description(),
              QStringLiteral("FFmpeg made no progress for 2.5 s and was stopped."));
    EXPECT_EQ(FFmpegWrapperError::inspectionTimedOut(QStringLiteral("a.mp3")).description(),
              QStringLiteral("FFmpeg inspection timed out for a.mp3"));
    EXPECT_STREQ(FFmpegWrapperError::binaryNotFound(QStringLiteral("/x")).what(), "FFmpeg binary not found at: /x");
}
