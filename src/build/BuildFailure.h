#pragma once

#include "export/engine/ExportError.h"
#include "platform/Error.h"

#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// Why a build did not make a book, as the user reads it: the message, the
// user's file it is about (never an internal one), and whether the request
// itself was wrong (a usage error), the work failed, or it was cancelled.
class BuildFailure : public Error {
public:
    enum class Kind {
        usage,     // the request cannot work as given; nothing was read or written
        failed,    // the inputs, the output or the build itself failed
        cancelled, // stopped by the user; nothing was left behind
    };

    BuildFailure(Kind kind, QString message, std::optional<QString> file = std::nullopt)
        : kind_(kind), message_(std::move(message)), file_(std::move(file))
    {
    }

    static BuildFailure usage(QString message, std::optional<QString> file = std::nullopt)
    {
        return BuildFailure(Kind::usage, std::move(message), std::move(file));
    }
    static BuildFailure failed(QString message, std::optional<QString> file = std::nullopt)
    {
        return BuildFailure(Kind::failed, std::move(message), std::move(file));
    }
    static BuildFailure cancelled();

    Kind kind() const { return kind_; }
    const QString& message() const { return message_; }
    const std::optional<QString>& file() const { return file_; }
    QString description() const override { return message_; }

    // The build's diagnostic log, when the export had started one.
    QString logFile;
    // The export engine's own error, when the export itself failed: lets a
    // caller tell a full disk or a missing ffmpeg from other failures.
    std::optional<ExportError> exportError;

    // {"status": "failed"|"usage"|"cancelled", "message", "file"?, "logFile"?}
    QJsonObject toJson() const;

private:
    Kind kind_;
    QString message_;
    std::optional<QString> file_;
};

} // namespace folivox
