#include "container/mp3/MP3IntegrityError.h"

#include "platform/L10n.h"

namespace folivox {

MP3IntegrityError::MP3IntegrityError(Kind kind, QString fileName, QString reason)
    : kind_(kind), fileName_(std::move(fileName)), reason_(std::move(reason))
{
}

QString MP3IntegrityError::description() const
{
    QString pattern;
    switch (kind_) {
    case Kind::cannotOpen:
        pattern = L10n::text("mp3integrity.error.cannotOpen", "Cannot open %@ to check it: %@");
        break;
    case Kind::cannotRead:
        pattern = L10n::text("mp3integrity.error.cannotRead", "Cannot read %@ to check it: %@");
        break;
    case Kind::cannotWrite:
        pattern = L10n::text("mp3integrity.error.cannotWrite", "Cannot write the repaired copy %@: %@");
        break;
    }
    return L10n::format(pattern, {fileName_, reason_});
}

} // namespace folivox
