#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Which part of a build an ffmpeg job was working on when it failed, so that
// the message can name the file. Attached by the strategies to the errors of
// failed jobs and carried to the completion.
struct ExportFailureContext {
    QStringList sourceFileNames; // the job's source files, by name, in order
    int decodeErrorCount = 0;
    bool corruptStreamKilled = false;
    int chapterIndex = 0; // 0-based
    QString chapterTitle;

    // True when the job's source looks damaged: the decoder failed on it, or
    // the tool layer stopped it for a corrupt stream.
    bool looksCorrupt() const { return corruptStreamKilled || decodeErrorCount > 0; }

    QJsonObject toJson() const;
    static ExportFailureContext fromJson(const QJsonObject& json);

    bool operator==(const ExportFailureContext&) const = default;
};

// The title an error dialog shows above the message, and the failure context
// when the failure came from a job.
struct ErrorContext {
    QString title;
    std::optional<ExportFailureContext> exportFailure;
};

} // namespace folivox
