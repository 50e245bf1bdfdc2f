// How failed builds are sorted for the queue (by type and cause, never by
// text), and which progress reports it keeps.
#include "queue/run/QueueFailureClassifier.h"
#include "queue/run/QueueProgressThrottle.h"
#include "container/io/SafeFileReplace.h"
#include "container/mp4/MP4File.h"
#include "export/metadata/MP4TagsService.h"
#include "process/FFmpegWrapperError.h"
#include "process/ToolLaunchError.h"

#include <QTemporaryDir>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

using namespace folivox;
using Class = JobAttempt::ErrorClass;
using Reason = QueueHalt::Reason;

namespace {

BuildFailure exportFailure(const ExportError& error, const QString& message = QStringLiteral("the build failed"))
{
    BuildFailure f = BuildFailure::failed(message, QStringLiteral("/out/Book.m4b"));
    f.exportError = error;
    f.logFile = QStringLiteral("/logs/export.log");
    return f;
}

} // namespace

TEST(QueueFailureClassifier, EachExportErrorHasItsClassAndHalt)
{
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("Book.m4b"));
    struct Case {
        ExportError error;
        Class cls;
        std::optional<Reason> halt;
    };
    // Errors as their producers make them: the cause comes from errno or
    // from the helper tool's absence, and survives the wrap into ExportError.
    const auto wrapped = [](const Error& e) { return ExportError::underlying(e.description(), QStringLiteral("T"), e.cause()); };
    const Case cases[] = {
        {ExportError::outOfSpace(), Class::environment, Reason::outOfSpace},
        {wrapped(MP4FileError(MP4FileError::Kind::writeFailed, QStringLiteral("/w/book.m4b"), ENOSPC)), Class::environment,
         Reason::outOfSpace},
        {wrapped(MP4FileError(MP4FileError::Kind::writeFailed, QStringLiteral("/w/book.m4b"), EDQUOT)), Class::environment,
         Reason::outOfSpace},
        {wrapped(SafeFileReplace::Error(SafeFileReplace::Error::Kind::replaceFailed, QStringLiteral("/o/B.m4b"), EROFS)),
         Class::environment, Reason::readOnlyVolume},
        {wrapped(ToolLaunchError::notFound(QStringLiteral("mp4chaps"))), Class::environment, Reason::tools},
        {wrapped(MP4TagsService::Error::binaryNotFound()), Class::environment, Reason::tools},
        {wrapped(FFmpegWrapperError::binaryNotFound(QStringLiteral("/opt/ffmpeg"))), Class::environment, Reason::tools},
        {ExportError::destinationNotWritable(QStringLiteral("Books")), Class::environment, Reason::destination},
        {ExportError::ffmpegUnavailable(), Class::environment, Reason::ffmpeg},
        {ExportError::securityCheckFailed(), Class::environment, Reason::security},
        {ExportError::licenseValidationFailed(QStringLiteral("no")), Class::licenseBlock, Reason::license},
        {ExportError::demoRestriction(QStringLiteral("demo")), Class::licenseBlock, Reason::license},
        {ExportError::noSourceFiles(), Class::sourcesUnavailable, Reason::sourcesLost},
        {ExportError::corruptedSourceRequiresTranscode(QStringLiteral("timescale")), Class::permanent, std::nullopt},
        {ExportError::transcodeFailedAfterRetry(QStringLiteral("a"), QStringLiteral("b")), Class::permanent, std::nullopt},
        {ExportError::validationFailed(QStringLiteral("bad")), Class::permanent, std::nullopt},
        {ExportError::failedToWrite(), Class::transient, std::nullopt},
        {wrapped(MP4FileError(MP4FileError::Kind::writeFailed, QStringLiteral("/w/book.m4b"), EIO)), Class::transient, std::nullopt},
        {ExportError::underlying(QStringLiteral("ffmpeg exited with code 1")), Class::transient, std::nullopt},
        // The text is never read: a message that only says so is no full
        // disk, no read-only volume and no missing tool.
        {ExportError::underlying(QStringLiteral("Could not replace \"B.m4b\": ") + QString::fromLocal8Bit(std::strerror(ENOSPC))),
         Class::transient, std::nullopt},
        {ExportError::underlying(QStringLiteral("cannot open: ") + QString::fromLocal8Bit(std::strerror(EROFS))), Class::transient,
         std::nullopt},
        {ExportError::underlying(QStringLiteral("mp4tags binary not found in app bundle")), Class::transient, std::nullopt},
    };
    for (const Case& c : cases) {
        const QueueBuildFailure f = QueueFailureClassifier::classify(exportFailure(c.error, c.error.description()), out);
        EXPECT_FALSE(f.cancelled);
        EXPECT_EQ(f.errorClass, c.cls) << c.error.description().toStdString();
        EXPECT_EQ(f.halt, c.halt) << c.error.description().toStdString();
        EXPECT_EQ(f.logFile, QStringLiteral("/logs/export.log"));
    }
    const QueueBuildFailure named = QueueFailureClassifier::classify(exportFailure(ExportError::destinationNotWritable(QStringLiteral("Books"))), out);
    EXPECT_EQ(QueueHalt::text(*named.halt, named.haltFolder), QStringLiteral("Folivox can't save into “Books” — queue paused."));
}

TEST(QueueFailureClassifier, CancelsUsageAndFailuresBeforeTheExport)
{
    EXPECT_TRUE(QueueFailureClassifier::classify(BuildFailure::cancelled(), QStringLiteral("/out/B.m4b")).cancelled);
    EXPECT_TRUE(QueueFailureClassifier::classify(exportFailure(ExportError::cancelled()), QStringLiteral("/out/B.m4b")).cancelled);

    const QueueBuildFailure usage = QueueFailureClassifier::classify(BuildFailure::usage(QStringLiteral("bad -o")), QStringLiteral("/o"));
    EXPECT_EQ(usage.errorClass, Class::permanent);
    EXPECT_FALSE(usage.halt);
    EXPECT_EQ(usage.message, QStringLiteral("bad -o"));

    QTemporaryDir dir;
    const QueueBuildFailure exists = QueueFailureClassifier::classify(
        BuildFailure::failed(QStringLiteral("'/out/B.m4b' already exists")), dir.filePath(QStringLiteral("B.m4b")));
    EXPECT_EQ(exists.errorClass, Class::permanent);
    EXPECT_FALSE(exists.halt);

    const QueueBuildFailure saysFull = QueueFailureClassifier::classify(
        BuildFailure::failed(QStringLiteral("cannot write the work file: No space left on device")), dir.filePath(QStringLiteral("B.m4b")));
    EXPECT_EQ(saysFull.errorClass, Class::permanent);
    EXPECT_FALSE(saysFull.halt);

    BuildFailure fullDisk = BuildFailure::failed(QStringLiteral("the output is locked"));
    fullDisk.setCause(Error::Cause::outOfSpace);
    const QueueBuildFailure full = QueueFailureClassifier::classify(fullDisk, dir.filePath(QStringLiteral("B.m4b")));
    EXPECT_EQ(full.halt, Reason::outOfSpace);
    BuildFailure readOnly = BuildFailure::failed(QStringLiteral("the output is locked"));
    readOnly.setCause(Error::Cause::readOnlyVolume);
    EXPECT_EQ(QueueFailureClassifier::classify(readOnly, dir.filePath(QStringLiteral("B.m4b"))).halt, Reason::readOnlyVolume);

    // Across a worker process the sorted failure keeps every field.
    const QueueBuildFailure back = QueueBuildFailure::fromJson(full.toJson());
    EXPECT_EQ(back.errorClass, Class::environment);
    EXPECT_EQ(back.halt, Reason::outOfSpace);
    EXPECT_EQ(back.message, full.message);
}

TEST(QueueFailureClassifier, ProgressIsKeptOnAPhaseChangeAtTheEndOrEveryHalfPercent)
{
    QueueProgressThrottle t;
    EXPECT_TRUE(t.accept(QStringLiteral("Encoding"), 0.0));
    EXPECT_FALSE(t.accept(QStringLiteral("Encoding"), 0.004));
    EXPECT_TRUE(t.accept(QStringLiteral("Encoding"), 0.005));
    EXPECT_FALSE(t.accept(QStringLiteral("Encoding"), 0.0099));
    EXPECT_TRUE(t.accept(QStringLiteral("Encoding"), 0.010));
    EXPECT_TRUE(t.accept(QStringLiteral("Writing metadata"), 0.010)); // new phase
    EXPECT_FALSE(t.accept(QStringLiteral("Writing metadata"), 0.011));
    EXPECT_TRUE(t.accept(QStringLiteral("Writing metadata"), 1.0)); // the end
    t.reset();
    EXPECT_TRUE(t.accept(QStringLiteral("Writing metadata"), 1.0));
}
