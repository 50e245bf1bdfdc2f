#pragma once

#include <QString>
#include <QStringList>

namespace folivox {

// An audio encoder picked for one kind of output, with the profile option
// that encoder needs ("-profile:a 4" for HE-AAC on aac_at, for example).
struct EncoderChoice {
    QString encoder;
    QStringList profileArguments;

    // "-c:a <encoder>" followed by the profile arguments.
    QStringList codecArguments() const
    {
        return QStringList{QStringLiteral("-c:a"), encoder} + profileArguments;
    }

    bool operator==(const EncoderChoice&) const = default;
};

} // namespace folivox
