#include "queue/run/QueueFailureClassifier.h"

#include "platform/FailureCause.h"

#include <QFileInfo>

namespace folivox {

namespace {

using Class = JobAttempt::ErrorClass;
using Reason = QueueHalt::Reason;
using Cause = Error::Cause;

QString folderName(const QString& outputPath)
{
    return QFileInfo(QFileInfo(outputPath).absolutePath()).fileName();
}

} // namespace

QueueBuildFailure QueueFailureClassifier::classify(const BuildFailure& failure, const QString& outputPath)
{
    QueueBuildFailure result;
    const QString message = failure.message();
    if (failure.kind() == BuildFailure::Kind::cancelled
        || (failure.exportError && failure.exportError->kind() == ExportError::Kind::cancelled)) {
        result = QueueBuildFailure::cancellation();
    } else if (failure.kind() == BuildFailure::Kind::usage) {
        result = QueueBuildFailure::classified(Class::permanent, message);
    } else if (!failure.exportError) {
        // Refused before the export: inputs, chapter file, output checks.
        if (failure.cause() == Cause::outOfSpace)
            result = QueueBuildFailure::classified(Class::environment, message, Reason::outOfSpace);
        else if (failure.cause() == Cause::readOnlyVolume || FailureCause::volumeIsReadOnly(outputPath))
            result = QueueBuildFailure::classified(Class::environment, message, Reason::readOnlyVolume);
        else
            result = QueueBuildFailure::classified(Class::permanent, message);
    } else {
        const ExportError& e = *failure.exportError;
        const bool outOfSpace = e.kind() == ExportError::Kind::outOfSpace || e.cause() == Cause::outOfSpace;
        const bool writeFailure = e.kind() == ExportError::Kind::destinationNotWritable
                                  || e.kind() == ExportError::Kind::failedToWrite || e.kind() == ExportError::Kind::underlying;
        if (outOfSpace) {
            result = QueueBuildFailure::classified(Class::environment, message, Reason::outOfSpace);
        } else if (e.cause() == Cause::readOnlyVolume || (writeFailure && FailureCause::volumeIsReadOnly(outputPath))) {
            result = QueueBuildFailure::classified(Class::environment, message, Reason::readOnlyVolume);
        } else if (e.cause() == Cause::missingTool) {
            // A helper tool of the installation is missing: every build would need it.
            result = QueueBuildFailure::classified(Class::environment, message, Reason::tools);
        } else {
            switch (e.kind()) {
            case ExportError::Kind::destinationNotWritable:
                result = QueueBuildFailure::classified(Class::environment, message, Reason::destination,
                                                       e.detail().isEmpty() ? folderName(outputPath) : e.detail());
                break;
            case ExportError::Kind::ffmpegUnavailable:
                result = QueueBuildFailure::classified(Class::environment, message, Reason::ffmpeg);
                break;
            case ExportError::Kind::securityCheckFailed:
                result = QueueBuildFailure::classified(Class::environment, message, Reason::security);
                break;
            case ExportError::Kind::demoRestriction:
            case ExportError::Kind::licenseValidationFailed:
                result = QueueBuildFailure::classified(Class::licenseBlock, message, Reason::license);
                break;
            case ExportError::Kind::noSourceFiles:
                result = QueueBuildFailure::classified(Class::sourcesUnavailable, message, Reason::sourcesLost);
                break;
            case ExportError::Kind::corruptedSourceRequiresTranscode:
            case ExportError::Kind::transcodeFailedAfterRetry:
            case ExportError::Kind::validationFailed:
                result = QueueBuildFailure::classified(Class::permanent, message);
                break;
            case ExportError::Kind::cancelled:  // handled above
            case ExportError::Kind::outOfSpace: // handled above
            case ExportError::Kind::failedToWrite:
            case ExportError::Kind::underlying:
                result = QueueBuildFailure::classified(Class::transient, message);
                break;
            }
        }
    }
    result.logFile = failure.logFile;
    return result;
}

} // namespace folivox
