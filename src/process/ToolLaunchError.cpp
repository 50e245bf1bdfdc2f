#include "process/ToolLaunchError.h"

#include "platform/L10n.h"

namespace folivox {

ToolLaunchError::ToolLaunchError(Kind kind, QString tool, QString path, QString otherPath, QString reason)
    : kind_(kind), tool_(std::move(tool)), path_(std::move(path)), otherPath_(std::move(otherPath)),
      reason_(std::move(reason))
{
}

ToolLaunchError ToolLaunchError::notFound(const QString& tool)
{
    ToolLaunchError e(Kind::notFound, tool, {}, {}, {});
    e.setCause(Cause::missingTool);
    return e;
}

ToolLaunchError ToolLaunchError::wrongArchitecture(const QString& tool, const QString& firstPath,
                                                   const QString& secondPath)
{
    return ToolLaunchError(Kind::wrongArchitecture, tool, firstPath, secondPath, {});
}

ToolLaunchError ToolLaunchError::launchFailed(const QString& tool, const QString& path, const QString& reason)
{
    return ToolLaunchError(Kind::launchFailed, tool, path, {}, reason);
}

QString ToolLaunchError::description() const
{
    switch (kind_) {
    case Kind::notFound:
        return tool_ + L10n::text("error.tool.not_found", " binary not found in app bundle");
    case Kind::wrongArchitecture:
        return tool_ + L10n::text("error.tool.wrong_architecture", " binary has wrong architecture (tried: ") + path_
            + QStringLiteral(", ") + otherPath_ + QStringLiteral(")");
    case Kind::launchFailed:
        return L10n::format(L10n::text("error.tool.launch_failed", "Could not start %@ (%@): %@"),
                            {tool_, path_, reason_});
    }
    return {};
}

} // namespace folivox
