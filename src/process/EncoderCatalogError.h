#pragma once

#include "platform/Error.h"

#include <QString>
#include <QStringList>

namespace folivox {

// An output was asked for that the installed ffmpeg has no encoder for.
class EncoderCatalogError : public Error {
public:
    enum class Kind { encoderMissing };

    // `format` is what was asked for ("HE-AAC"); `encoders` are the encoders
    // that could have made it, in order of preference.
    static EncoderCatalogError encoderMissing(const QString& format, const QStringList& encoders);

    Kind kind() const { return kind_; }
    const QString& format() const { return format_; }
    const QStringList& encoders() const { return encoders_; }

    QString description() const override;

private:
    EncoderCatalogError(Kind kind, QString format, QStringList encoders);

    Kind kind_;
    QString format_;
    QStringList encoders_;
};

} // namespace folivox
