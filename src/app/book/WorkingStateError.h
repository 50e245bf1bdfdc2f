#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// The open book's working state could not be saved; the text names the file.
class WorkingStateError : public Error {
public:
    explicit WorkingStateError(QString text) : text_(std::move(text)) {}
    QString description() const override { return text_; }

private:
    QString text_;
};

} // namespace folivox
