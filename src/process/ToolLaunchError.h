#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// A helper tool that could not be found or started.
class ToolLaunchError : public Error {
public:
    enum class Kind {
        notFound,          // no binary for the tool in the tools directories or on PATH
        wrongArchitecture, // both architectures' binaries refused to execute
        launchFailed,      // any other start failure
    };

    static ToolLaunchError notFound(const QString& tool);
    static ToolLaunchError wrongArchitecture(const QString& tool, const QString& firstPath, const QString& secondPath);
    static ToolLaunchError launchFailed(const QString& tool, const QString& path, const QString& reason);

    Kind kind() const { return kind_; }
    const QString& tool() const { return tool_; }
    const QString& path() const { return path_; }
    const QString& otherPath() const { return otherPath_; }
    const QString& reason() const { return reason_; }

    QString description() const override;

private:
    ToolLaunchError(Kind kind, QString tool, QString path, QString otherPath, QString reason);

    Kind kind_;
    QString tool_;
    QString path_;
    QString otherPath_;
    QString reason_;
};

} // namespace folivox
