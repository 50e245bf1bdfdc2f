#pragma once

#include "container/io/SafeFileReplace.h"
#include "inplace/InPlaceUpdateMode.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// The backups of in-place updates: one "session-<time>-<id>" folder per
// update under <application data>/InPlaceBackups, holding a copy of every
// file the update writes ("<n>-<name>.bak") and a manifest naming the file
// each copy belongs to. A backup outlives its update; sessions older than
// purgeAgeDays are removed by purge().
//
// Copies are reflink clones (FICLONE) where the file system offers them
// (btrfs, XFS, bcachefs...): instant and sharing the disk blocks until one
// side changes. Elsewhere they are full copies, made durable before use.
class InPlaceBackupStore {
public:
    struct Entry {
        QString target; // the user's file
        QString backup; // its copy
    };

    struct RestoreOutcome {
        // The first put-back that stopped midway; the user is shown it.
        std::optional<SafeFileReplace::WriteInterruptedError> firstInterrupted;
        bool allRestored = false;
    };

    static constexpr int purgeAgeDays = 30;

    // <application data>/InPlaceBackups (made on first use).
    static QString root();
    // A new, empty session folder.
    static QString createSession();
    // Every session folder, oldest first.
    static QStringList sessions();

    // Copies target into the session and records it. Throws
    // InPlaceUpdateError::backupFailed naming the user's file; a partial
    // copy is removed then.
    static QString backup(const QString& session, const QString& target);

    // The session's backups. Throws Error when its manifest can't be read.
    static QList<Entry> list(const QString& session);
    // The backup of one file, if the session has one.
    static std::optional<QString> backupFor(const QString& session, const QString& target);

    // Removes sessions last changed more than maxAgeDays before now, logging
    // each. Returns how many were removed.
    static int purge(int maxAgeDays = purgeAgeDays, const QDateTime& now = QDateTime::currentDateTimeUtc());

    // Puts every file of the mode back from the session's backups through
    // SafeFileReplace; the backups stay.
    static RestoreOutcome restore(const QString& session, const InPlaceUpdateMode& mode);

    // Copies from to a new file to: a reflink clone where possible, else a
    // copy; made durable. Returns true for a clone. Throws MP4FileError or
    // GenericError; to does not exist afterwards on failure.
    static bool cloneOrCopy(const QString& from, const QString& to, unsigned mode = 0600);
};

} // namespace folivox
