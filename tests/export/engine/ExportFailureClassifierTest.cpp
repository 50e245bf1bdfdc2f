#include "export/engine/ExportError.h"
#include "export/engine/ExportFailureClassifier.h"
#include "export/strategies/FFmpegEncoderError.h"
#include "process/ManualCancellationToken.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace folivox;

namespace {

template<class E>
ExportFailureClassifier::Kind kindOf(const E& error, const CancellationToken& token = CancellationToken::never())
{
    return ExportFailureClassifier::classify(std::make_exception_ptr(error), token);
}

} // namespace

TEST(ExportFailureClassifierTest, TheKindComesFromTheErrorsTypeAndCaseNotFromItsText)
{
    using Kind = ExportFailureClassifier::Kind;
    EXPECT_EQ(kindOf(ExportError::cancelled()), Kind::cancelled);
    EXPECT_EQ(kindOf(FFmpegEncoderError::cancelled()), Kind::cancelled);
    EXPECT_EQ(kindOf(ExportError::outOfSpace()), Kind::outOfSpace);
    EXPECT_EQ(kindOf(ExportError::outOfSpaceInTemporaryFolder(QStringLiteral("/tmp"))), Kind::outOfSpace);
    EXPECT_EQ(kindOf(ExportError::outOfSpaceAtDestination(QStringLiteral("/media/books"))), Kind::outOfSpace);
    EXPECT_EQ(kindOf(ExportError::corruptedSourceRequiresTranscode(QStringLiteral("timescale"))), Kind::corruptedSource);
    EXPECT_EQ(kindOf(ExportError::failedToWrite()), Kind::other);
    EXPECT_EQ(kindOf(FFmpegEncoderError::executionFailed(QStringLiteral("exit 1"))), Kind::other);
    EXPECT_EQ(kindOf(std::runtime_error("boom")), Kind::other);
    EXPECT_EQ(ExportFailureClassifier::classify(nullptr, CancellationToken::never()), Kind::other);

    // Errors that only read like a cancel or a full disk are neither: a
    // message a tool or a user's file name happens to contain decides nothing.
    EXPECT_EQ(kindOf(ExportError::underlying(ExportError::cancelled().description())), Kind::other);
    EXPECT_EQ(kindOf(ExportError::underlying(ExportError::outOfSpace().description())), Kind::other);
    EXPECT_EQ(kindOf(FFmpegEncoderError::executionFailed(FFmpegEncoderError::cancelled().description())), Kind::other);
}

TEST(ExportFailureClassifierTest, AnyFailureAfterTheTokenIsCancelledIsTheCancel)
{
    ManualCancellationToken token;
    token.cancel();
    using Kind = ExportFailureClassifier::Kind;
    // A child stopped by the cancel fails in its own words.
    EXPECT_EQ(kindOf(FFmpegEncoderError::executionFailed(QStringLiteral("Conversion failed!")), token), Kind::cancelled);
    EXPECT_EQ(kindOf(ExportError::outOfSpace(), token), Kind::cancelled);
    EXPECT_EQ(kindOf(std::runtime_error("broken pipe"), token), Kind::cancelled);
}
