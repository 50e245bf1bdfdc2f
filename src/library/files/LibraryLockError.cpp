#include "library/files/LibraryLockError.h"

#include "platform/L10n.h"

namespace folivox {

LibraryLockError::LibraryLockError(Kind kind, QString root, QString detail)
    : kind_(kind)
    , root_(std::move(root))
    , detail_(std::move(detail))
{
}

QString LibraryLockError::description() const
{
    if (kind_ == Kind::heldByAnotherProcess)
        return L10n::format(L10n::text("library.error.locked",
                                       "The library %@ is in use by another Folivox process%@. Try again when it "
                                       "has finished, or choose another library with --library."),
                            {root_, detail_.isEmpty() ? QString() : QStringLiteral(" (") + detail_ + u')'});
    return L10n::format(L10n::text("library.error.lockFile", "The library %@ can't be locked: %@"), {root_, detail_});
}

} // namespace folivox
