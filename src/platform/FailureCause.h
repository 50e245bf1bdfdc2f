#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Works out an Error::Cause at the place a system call or a write failed.
class FailureCause {
public:
    // ENOSPC and EDQUOT: outOfSpace; EROFS: readOnlyVolume; anything else: none.
    static Error::Cause fromErrno(int err);

    // For a write to `path` that failed without an errno to hand (a library
    // reported only that it failed): the state of the volume holding `path`,
    // or its nearest existing folder. Read-only: readOnlyVolume; no block
    // left for an unprivileged writer: outOfSpace; otherwise none.
    static Error::Cause ofVolumeAt(const QString& path);

    // errno when it names a cause, else the volume's state.
    static Error::Cause ofFailedWrite(const QString& path, int err);

    // Whether the volume holding `path` (or its nearest existing folder) is
    // mounted read-only.
    static bool volumeIsReadOnly(const QString& path);
};

} // namespace folivox
