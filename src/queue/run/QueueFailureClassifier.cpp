#include "queue/run/QueueFailureClassifier.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/statvfs.h>

namespace folivox {

namespace {

using Class = JobAttempt::ErrorClass;
using Reason = QueueHalt::Reason;

QString nearestExisting(const QString& path)
{
    QFileInfo info(path);
    QString dir = info.exists() ? info.absoluteFilePath() : info.absolutePath();
    while (!dir.isEmpty() && !QFileInfo::exists(dir) && dir != QStringLiteral("/"))
        dir = QFileInfo(dir).absolutePath();
    return dir;
}

QString folderName(const QString& outputPath)
{
    return QFileInfo(QFileInfo(outputPath).absolutePath()).fileName();
}

} // namespace

bool QueueFailureClassifier::mentionsOutOfSpace(const QString& text)
{
    static const QString posix = QString::fromLocal8Bit(std::strerror(ENOSPC));
    static const QString outOfSpace = ExportError::outOfSpace().description();
    return text.contains(posix, Qt::CaseInsensitive) || text.contains(QLatin1String("No space left on device"), Qt::CaseInsensitive)
        || text.contains(outOfSpace.section(u'\n', 0, 0));
}

bool QueueFailureClassifier::mentionsReadOnly(const QString& text)
{
    static const QString posix = QString::fromLocal8Bit(std::strerror(EROFS));
    return text.contains(posix, Qt::CaseInsensitive) || text.contains(QLatin1String("Read-only file system"), Qt::CaseInsensitive);
}

bool QueueFailureClassifier::volumeIsReadOnly(const QString& path)
{
    const QString existing = nearestExisting(path);
    struct statvfs st {};
    if (existing.isEmpty() || ::statvfs(QFile::encodeName(existing).constData(), &st) != 0)
        return false;
    return (st.f_flag & ST_RDONLY) != 0;
}

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
        if (mentionsOutOfSpace(message))
            result = QueueBuildFailure::classified(Class::environment, message, Reason::outOfSpace);
        else if (mentionsReadOnly(message) || volumeIsReadOnly(outputPath))
            result = QueueBuildFailure::classified(Class::environment, message, Reason::readOnlyVolume);
        else
            result = QueueBuildFailure::classified(Class::permanent, message);
    } else {
        const ExportError& e = *failure.exportError;
        const QString text = message + u'\n' + e.description();
        const bool outOfSpace = e.kind() == ExportError::Kind::outOfSpace || mentionsOutOfSpace(text);
        const bool writeFailure = e.kind() == ExportError::Kind::destinationNotWritable
                                  || e.kind() == ExportError::Kind::failedToWrite || e.kind() == ExportError::Kind::underlying;
        if (outOfSpace) {
            result = QueueBuildFailure::classified(Class::environment, message, Reason::outOfSpace);
        } else if (mentionsReadOnly(text) || (writeFailure && volumeIsReadOnly(outputPath))) {
            result = QueueBuildFailure::classified(Class::environment, message, Reason::readOnlyVolume);
        } else if (text.contains(QLatin1String("binary not found"))) {
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
