#include "process/EncoderCatalogError.h"

#include "platform/L10n.h"

namespace folivox {

EncoderCatalogError::EncoderCatalogError(Kind kind, QString format, QStringList encoders)
    : kind_(kind), format_(std::move(format)), encoders_(std::move(encoders))
{
}

EncoderCatalogError EncoderCatalogError::encoderMissing(const QString& format, const QStringList& encoders)
{
    return EncoderCatalogError(Kind::encoderMissing, format, encoders);
}

QString EncoderCatalogError::description() const
{
    if (encoders_.size() == 1) {
        return L10n::format(L10n::text("error.encoder.missing_one",
                                       "%@ encoding needs the \"%@\" encoder, which the installed ffmpeg does not have."),
                            {format_, encoders_.first()});
    }
    QStringList quoted;
    for (const QString& e : encoders_)
        quoted << QStringLiteral("\"") + e + QStringLiteral("\"");
    const QString last = quoted.takeLast();
    return L10n::format(L10n::text("error.encoder.missing_any",
                                   "%@ encoding needs the %@ or %@ encoder, and the installed ffmpeg has none of them."),
                        {format_, quoted.join(QStringLiteral(", ")), last});
}

} // namespace folivox
