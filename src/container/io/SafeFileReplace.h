#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Puts a finished temporary file in the place of a target so that at every
// instant either the old or the new file is whole somewhere on disk:
//   1. a rename on the same volume (atomic);
//   2. across volumes, a copy beside the target, made durable, then a rename;
//   3. where the target's folder refuses new entries but the target itself
//      can be written, an overwrite of the target in place. The finished
//      temporary file is kept until that overwrite is complete; if it fails
//      midway, WriteInterruptedError names the complete copy.
// A symlink at the target path is replaced as a directory entry: the file it
// points to is never written. The target's permission bits carry over.
class SafeFileReplace {
public:
    class Error : public folivox::Error {
    public:
        enum class Kind { sourceUnreadable, targetNotAFile, replaceFailed };
        Error(Kind kind, QString path, QString systemMessage, Cause cause = Cause::none)
            : kind_(kind), path_(std::move(path)), systemMessage_(std::move(systemMessage))
        {
            setCause(cause);
        }
        // From a failed system call's errno.
        Error(Kind kind, QString path, int err);
        Kind kind() const { return kind_; }
        const QString& path() const { return path_; }
        QString description() const override;

    private:
        Kind kind_;
        QString path_;
        QString systemMessage_;
    };

    // The target was being overwritten in place and the write stopped
    // midway: the target is damaged, and preservedCopyPath holds the whole
    // new file.
    class WriteInterruptedError : public folivox::Error {
    public:
        WriteInterruptedError(QString targetPath, QString preservedCopyPath, QString reason, Cause cause = Cause::none)
            : targetPath_(std::move(targetPath)), preservedCopyPath_(std::move(preservedCopyPath)), reason_(std::move(reason))
        {
            setCause(cause);
        }
        const QString& targetPath() const { return targetPath_; }
        const QString& preservedCopyPath() const { return preservedCopyPath_; }
        const QString& reason() const { return reason_; }
        QString description() const override;

    private:
        QString targetPath_;
        QString preservedCopyPath_;
        QString reason_;
    };

    // Moves finishedFile to target. On success finishedFile no longer exists.
    // Throws Error when nothing was changed, WriteInterruptedError when the
    // target was left damaged with a complete copy kept.
    static void replace(const QString& finishedFile, const QString& target);

    // Replaces target's whole content with bytes: written to a temporary
    // file in FolivoxWork (with target's extension), synchronised, then put
    // in place with replace(). Throws as replace() does, or MP4FileError
    // when the temporary file can't be written (it is removed then).
    static void writeWhole(const QString& target, const QByteArray& bytes);

};

} // namespace folivox
