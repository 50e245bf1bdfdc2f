#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Checks a file path before it reaches a child's argument list. A path that
// starts with a dash would be read as an option; a null byte truncates it; a
// ".." component escapes the folder it was meant for; a newline breaks the
// one-file-per-line concat lists.
class PathValidator {
public:
    // The refusal message for this path, or nothing when it is acceptable.
    // The checks run in a fixed order and the first failure is reported.
    static std::optional<QString> problem(const QString& path);

    // Throws FFmpegWrapperError::invalidPath with the refusal message.
    static void validate(const QString& path);
    static void validateAll(const QStringList& paths);
};

} // namespace folivox
