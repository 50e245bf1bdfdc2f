#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// The library's lock could not be taken: another process holds it, or the
// lock file can't be opened. The message names the library folder.
class LibraryLockError : public Error {
public:
    enum class Kind { heldByAnotherProcess, cannotOpen };

    LibraryLockError(Kind kind, QString root, QString detail);

    Kind kind() const { return kind_; }
    const QString& root() const { return root_; }
    QString description() const override;

private:
    Kind kind_;
    QString root_;
    QString detail_;
};

} // namespace folivox
