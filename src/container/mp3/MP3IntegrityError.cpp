#include "container/mp3/MP3IntegrityError.h"

#include "platform/L10n.h"

namespace folivox {

MP3IntegrityError::MP3IntegrityError(Kind kind, QString fileName, QString reason)
    : kind_(kind), fileName_(std::move(fileName)), reason_(std::move(reason))
{
}

QString MP3IntegrityError::description() const
{
    const QString pattern = kind_ == Kind::cannotOpen
        ? L10n::text("mp3integrity.error.cannotOpen", "Cannot open %@ to check it: %@")
        : L10n::text("mp3integrity.error.cannotRead", "Cannot read %@ to check it: %@");
    return L10n::format(pattern, {fileName_, reason_});
}

} // namespace folivox
