#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// A file that could not be scanned at all. The text names the user's file.
class MP3IntegrityError : public Error {
public:
    enum class Kind { cannotOpen, cannotRead };

    MP3IntegrityError(Kind kind, QString fileName, QString reason);

    Kind kind() const { return kind_; }
    const QString& fileName() const { return fileName_; }
    QString description() const override;

private:
    Kind kind_;
    QString fileName_;
    QString reason_;
};

} // namespace folivox
