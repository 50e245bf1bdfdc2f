#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Failures decoding chapter naming records (templates and their tokens).
class ChapterFormatError : public Error {
public:
    enum class Kind { invalidNumberOfKeys, unknownCase, invalidValue };

    ChapterFormatError(Kind kind, QString detail) : kind_(kind), detail_(std::move(detail)) {}

    Kind kind() const { return kind_; }
    const QString& detail() const { return detail_; }
    QString description() const override;

private:
    Kind kind_;
    QString detail_;
};

} // namespace folivox
