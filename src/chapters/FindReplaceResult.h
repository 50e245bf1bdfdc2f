#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

struct FindReplaceError {
    enum class Kind { invalidPattern, tooSlow };

    Kind kind = Kind::invalidPattern;
    // For invalidPattern the pattern compiler's explanation; for tooSlow the
    // text shown to the user.
    QString message;

    static FindReplaceError invalidPattern(const QString& message) { return {Kind::invalidPattern, message}; }
    static FindReplaceError tooSlow(const QString& message) { return {Kind::tooSlow, message}; }

    // "Invalid pattern: <message>" or the too-slow text, localised.
    QString displayText() const;
};

// The titles after a find and replace. On an error the titles are the ones
// given, unchanged, and matchedCount is 0.
struct FindReplaceResult {
    QStringList titles;
    // How many titles had at least one match.
    int matchedCount = 0;
    std::optional<FindReplaceError> error;
};

} // namespace folivox
