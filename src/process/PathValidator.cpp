#include "process/PathValidator.h"

#include "process/FFmpegWrapperError.h"
#include "platform/L10n.h"

namespace folivox {

std::optional<QString> PathValidator::problem(const QString& path)
{
    if (path.startsWith(u'-'))
        return L10n::text("error.path.leading_dash", "Path cannot start with dash: ") + path;
    if (path.contains(QChar(u'\0')))
        return L10n::text("error.path.null_byte", "Path cannot contain null bytes");
    const QStringList components = path.split(u'/');
    if (components.contains(QStringLiteral("..")))
        return L10n::text("error.path.traversal", "Path traversal detected: ") + path;
    // A carriage return splits a concat list line just as a line feed does.
    if (path.contains(u'\n') || path.contains(u'\r'))
        return L10n::text("error.path.newline", "File path contains newline character: ") + path;
    return std::nullopt;
}

void PathValidator::validate(const QString& path)
{
    if (auto message = problem(path))
        throw FFmpegWrapperError::invalidPath(*message);
}

void PathValidator::validateAll(const QStringList& paths)
{
    for (const QString& p : paths)
        validate(p);
}

} // namespace folivox
