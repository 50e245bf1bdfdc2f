#include "chapters/ChapterFormatError.h"

namespace folivox {

QString ChapterFormatError::description() const
{
    switch (kind_) {
    case Kind::invalidNumberOfKeys: return QStringLiteral("Invalid number of keys found, expected one.");
    case Kind::unknownCase: return QStringLiteral("Unknown case '%1'").arg(detail_);
    case Kind::invalidValue: return QStringLiteral("Invalid value for '%1'").arg(detail_);
    }
    return {};
}

} // namespace folivox
