#include "tools/ToolReport.h"

#include "tools/ToolError.h"

#include <QFileInfo>

namespace folivox {

int ToolReport::usageFailure(const char* tool, const ToolError& error, QTextStream& err)
{
    err << tool << ": " << error.description() << '\n';
    err.flush();
    return error.exitStatus();
}

int ToolReport::forEachFile(const char* tool, const QStringList& files, QTextStream& err,
                            const std::function<void(const QString& file)>& edit)
{
    int status = 0;
    for (const QString& file : files) {
        try {
            edit(file);
        } catch (const ToolError& e) {
            err << tool << ": " << e.description() << '\n';
            status = e.exitStatus();
        } catch (const Error& e) {
            err << tool << ": " << QFileInfo(file).fileName() << ": " << e.description() << '\n';
            status = 1;
        }
    }
    err.flush();
    return status;
}

} // namespace folivox
