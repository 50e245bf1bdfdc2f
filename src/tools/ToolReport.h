#pragma once

#include <QString>
#include <QStringList>
#include <QTextStream>

#include <functional>

namespace folivox {

class ToolError;

// How mp4tags, mp4art and mp4chaps report: one line on stderr per failure,
// prefixed with the tool's name, and an exit status (2 for a usage error,
// 1 for any other failure, 0 when everything succeeded).
class ToolReport {
public:
    // Reports a command-line error; returns its exit status.
    static int usageFailure(const char* tool, const ToolError& error, QTextStream& err);

    // Runs edit on each file in turn. A failure is reported and the next file
    // is tried; the tool's own refusals are printed as they read, any other
    // error with the file's name in front. Returns the exit status of the
    // last failure, or 0.
    static int forEachFile(const char* tool, const QStringList& files, QTextStream& err,
                           const std::function<void(const QString& file)>& edit);
};

} // namespace folivox
