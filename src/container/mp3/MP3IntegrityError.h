#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// A file that could not be scanned at all, or a repaired copy that could not
// be written. The text names the file.
class MP3IntegrityError : public Error {
public:
    enum class Kind { cannotOpen, cannotRead, cannotWrite };

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
