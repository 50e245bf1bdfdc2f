#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Settings that cannot make a build.
class ExportSettingsError : public Error {
public:
    enum class Kind {
        // splitMode byDuration with splitHours of 0 or less:
        // "splitHours must be > 0 for split export".
        invalidSplitHours,
        // splitMode bySize with splitSizeMB of 0 or less:
        // "splitSizeMB must be > 0 for split export".
        invalidSplitSize,
    };

    ExportSettingsError(Kind kind, double value) : kind_(kind), value_(value) {}

    Kind kind() const { return kind_; }
    // The offending value.
    double value() const { return value_; }

    QString description() const override;

private:
    Kind kind_;
    double value_;
};

} // namespace folivox
