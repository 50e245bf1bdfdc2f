#include "library/files/LibraryLocation.h"

#include "platform/AppPaths.h"

#include <QDir>
#include <QFileInfo>

namespace folivox {

QString LibraryLocation::root(const QString& given)
{
    if (!given.isEmpty())
        return QFileInfo(given).absoluteFilePath();
    const QString fromEnvironment = qEnvironmentVariable("FOLIVOX_LIBRARY");
    if (!fromEnvironment.isEmpty())
        return QFileInfo(fromEnvironment).absoluteFilePath();
    return QDir(AppPaths::appSupportDir()).filePath(QStringLiteral("Library"));
}

} // namespace folivox
