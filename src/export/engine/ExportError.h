#pragma once

#include "platform/Error.h"

#include <QString>

#include <memory>

namespace folivox {

// Everything a build can fail with, as the user reads it.
class ExportError : public Error {
public:
    enum class Kind {
        corruptedSourceRequiresTranscode,
        transcodeFailedAfterRetry,
        underlying,
        demoRestriction,
        licenseValidationFailed,
        validationFailed,
        destinationNotWritable,
        failedToWrite,
        cancelled,
        ffmpegUnavailable,
        securityCheckFailed,
        noSourceFiles,
        outOfSpace,
    };

    static ExportError corruptedSourceRequiresTranscode(const QString& details);
    static ExportError transcodeFailedAfterRetry(const QString& originalError, const QString& retryError);
    // Wraps any other error; its own description is the text shown, and its
    // cause (a full disk, a missing tool, ...) is kept.
    static ExportError underlying(const QString& description, const QString& typeName = {}, Cause cause = Cause::none);
    static ExportError demoRestriction(const QString& message);
    static ExportError licenseValidationFailed(const QString& message);
    static ExportError validationFailed(const QString& message);
    // folderName: the last path component of the folder that refused.
    static ExportError destinationNotWritable(const QString& folderName);
    static ExportError failedToWrite();
    static ExportError cancelled();
    static ExportError ffmpegUnavailable();
    static ExportError securityCheckFailed();
    static ExportError noSourceFiles();
    // A full disk, with its own message: where is not known yet (an encode
    // writing its work files), ...
    static ExportError outOfSpace();
    // ... the disk of the temporary folder, or of the destination folder,
    // each message saying which folder and what to do.
    static ExportError outOfSpaceInTemporaryFolder(const QString& folder);
    static ExportError outOfSpaceAtDestination(const QString& folder);

    Kind kind() const { return kind_; }
    // The payload: details, message, folder name or wrapped description.
    const QString& detail() const { return detail_; }
    const QString& secondDetail() const { return second_; }
    // For underlying: the dynamic type name of the wrapped error, for logs.
    const QString& underlyingType() const { return typeName_; }
    // The case's name, for log lines ("EXPORT ERROR (ExportError): <case>").
    QString caseName() const;

    QString description() const override;

private:
    ExportError(Kind kind, QString detail, QString second = {}, QString typeName = {});

    Kind kind_;
    QString detail_;
    QString second_;
    QString typeName_;
};

} // namespace folivox
