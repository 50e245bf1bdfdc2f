#include "platform/WorkDirectory.h"

#include "platform/AppPaths.h"
#include "platform/Error.h"

#include <QDir>
#include <QUuid>

namespace folivox {

WorkDirectory::WorkDirectory()
{
    const QString candidate = AppPaths::workRoot() + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    if (!QDir().mkpath(candidate))
        throw GenericError(QStringLiteral("Cannot create the work folder ") + candidate);
    path_ = candidate;
}

WorkDirectory::~WorkDirectory()
{
    if (!path_.isEmpty())
        QDir(path_).removeRecursively();
}

WorkDirectory::WorkDirectory(WorkDirectory&& other) noexcept
    : path_(std::move(other.path_))
{
    other.path_.clear();
}

WorkDirectory& WorkDirectory::operator=(WorkDirectory&& other) noexcept
{
    if (this != &other) {
        if (!path_.isEmpty())
            QDir(path_).removeRecursively();
        path_ = std::move(other.path_);
        other.path_.clear();
    }
    return *this;
}

QString WorkDirectory::filePath(const QString& name) const
{
    return path_ + u'/' + name;
}

} // namespace folivox
