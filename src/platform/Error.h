#pragma once

#include <QString>

#include <exception>
#include <string>

namespace folivox {

// Base of every error Folivox throws. Each family derives from it with its own
// Kind enumeration and payload; description() gives the exact user-facing text.
class Error : public std::exception {
public:
    Error() = default;
    ~Error() override = default;

    virtual QString description() const = 0;

    const char* what() const noexcept override;

private:
    mutable std::string whatCache_;
};

// A plain error carrying only its text, for failures that have no family of
// their own (configuration, programming mistakes surfaced to the user).
class GenericError : public Error {
public:
    explicit GenericError(QString text) : text_(std::move(text)) {}
    QString description() const override { return text_; }

private:
    QString text_;
};

} // namespace folivox
