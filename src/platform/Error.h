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

    // What the system reported under the failure, where that changes what a
    // caller does next (a queue halts on a full disk rather than trying the
    // next book). Set where the failure happens, from errno or the volume's
    // state, and carried along when an error is wrapped in another.
    enum class Cause {
        none,
        outOfSpace,     // the disk or the user's quota is full
        readOnlyVolume, // the file system is mounted read-only
        missingTool,    // a helper program of the installation is not there
    };
    Cause cause() const { return cause_; }
    void setCause(Cause cause) { cause_ = cause; }

private:
    mutable std::string whatCache_;
    Cause cause_ = Cause::none;
};

// A plain error carrying only its text, for failures that have no family of
// their own (configuration, programming mistakes surfaced to the user).
class GenericError : public Error {
public:
    explicit GenericError(QString text, Cause cause = Cause::none) : text_(std::move(text)) { setCause(cause); }
    QString description() const override { return text_; }

private:
    QString text_;
};

} // namespace folivox
