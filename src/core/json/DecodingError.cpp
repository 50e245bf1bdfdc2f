#include "core/json/DecodingError.h"

namespace folivox {

DecodingError::DecodingError(Kind kind, QString codingPath, QString detail)
    : kind_(kind), codingPath_(std::move(codingPath)), detail_(std::move(detail))
{
}

DecodingError DecodingError::keyNotFound(const QString& key)
{
    return DecodingError(Kind::keyNotFound, key);
}

DecodingError DecodingError::valueNotFound(const QString& key, const QString& expectedType)
{
    return DecodingError(Kind::valueNotFound, key, expectedType);
}

DecodingError DecodingError::typeMismatch(const QString& key, const QString& expectedType)
{
    return DecodingError(Kind::typeMismatch, key, expectedType);
}

DecodingError DecodingError::dataCorrupted(const QString& key, const QString& detail)
{
    return DecodingError(Kind::dataCorrupted, key, detail);
}

QString DecodingError::description() const
{
    const QString where = codingPath_.isEmpty() ? QStringLiteral("the top level") : QStringLiteral("key \"%1\"").arg(codingPath_);
    switch (kind_) {
    case Kind::keyNotFound:
        return QStringLiteral("No value associated with %1").arg(where);
    case Kind::valueNotFound:
        return QStringLiteral("Expected %1 for %2 but found null").arg(detail_, where);
    case Kind::typeMismatch:
        return QStringLiteral("Expected %1 for %2").arg(detail_, where);
    case Kind::dataCorrupted:
        return detail_;
    }
    return detail_;
}

DecodingError DecodingError::prefixed(const QString& parent) const
{
    QString path;
    if (codingPath_.isEmpty())
        path = parent;
    else if (parent.isEmpty())
        path = codingPath_;
    else if (codingPath_.startsWith(u'['))
        path = parent + codingPath_;
    else
        path = parent + u'.' + codingPath_;
    return DecodingError(kind_, path, detail_);
}

} // namespace folivox
