#include "process/BinaryResolver.h"

#include "process/ToolLaunchError.h"
#include "platform/AppPaths.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QStandardPaths>
#include <QSysInfo>

#include <mutex>

namespace folivox {

namespace {

std::mutex gFallbackMutex;

QHash<QString, QString>& fallbacks()
{
    static QHash<QString, QString> table;
    return table;
}

bool isExecutableFile(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

} // namespace

BinaryResolver::BinaryResolver() : toolsDirectories_(AppPaths::toolDirectories()) {}

BinaryResolver::BinaryResolver(QStringList toolsDirectories) : toolsDirectories_(std::move(toolsDirectories)) {}

std::optional<QString> BinaryResolver::find(const QString& tool) const
{
    {
        // A remembered fallback counts only while it still sits in one of our
        // folders; a resolver looking elsewhere must not be redirected.
        std::lock_guard lock(gFallbackMutex);
        const auto it = fallbacks().constFind(tool);
        if (it != fallbacks().constEnd() && isExecutableFile(*it)) {
            const QString dir = QFileInfo(*it).absolutePath();
            for (const QString& d : toolsDirectories_) {
                if (QDir(d).absolutePath() == dir)
                    return *it;
            }
        }
    }
    const QString suffix = architectureSuffix(currentArchitecture());
    for (const QString& dir : toolsDirectories_) {
        if (!suffix.isEmpty()) {
            const QString archPath = QDir(dir).filePath(tool + suffix);
            if (isExecutableFile(archPath))
                return QDir::cleanPath(archPath);
        }
        const QString plainPath = QDir(dir).filePath(tool);
        if (isExecutableFile(plainPath))
            return QDir::cleanPath(plainPath);
    }
    const QString onPath = QStandardPaths::findExecutable(tool);
    if (!onPath.isEmpty())
        return onPath;
    return std::nullopt;
}

QString BinaryResolver::resolve(const QString& tool) const
{
    if (auto path = find(tool))
        return *path;
    throw ToolLaunchError::notFound(tool);
}

std::optional<QString> BinaryResolver::findForArchitecture(const QString& tool, const QString& architecture) const
{
    const QString suffix = architectureSuffix(architecture);
    if (suffix.isEmpty())
        return std::nullopt;
    for (const QString& dir : toolsDirectories_) {
        const QString path = QDir(dir).filePath(tool + suffix);
        if (isExecutableFile(path))
            return QDir::cleanPath(path);
    }
    return std::nullopt;
}

QString BinaryResolver::currentArchitecture()
{
    // The kernel's processor, not the one this program was built for: a
    // translated x86-64 build on an arm64 machine still prefers arm64 tools.
    const QString arch = QSysInfo::currentCpuArchitecture();
    if (arch == QLatin1String("arm64") || arch == QLatin1String("arm64e") || arch == QLatin1String("aarch64"))
        return QStringLiteral("arm64");
    if (arch == QLatin1String("x86_64") || arch == QLatin1String("amd64"))
        return QStringLiteral("x86_64");
    return arch;
}

QString BinaryResolver::otherArchitecture(const QString& architecture)
{
    if (architecture == QLatin1String("x86_64"))
        return QStringLiteral("arm64");
    if (architecture == QLatin1String("arm64"))
        return QStringLiteral("x86_64");
    return {};
}

QString BinaryResolver::architectureSuffix(const QString& architecture)
{
    if (architecture == QLatin1String("x86_64") || architecture == QLatin1String("arm64"))
        return QStringLiteral("-") + architecture;
    return {};
}

QString BinaryResolver::otherArchitecturePath(const QString& path)
{
    static const QString x86 = QStringLiteral("-x86_64");
    static const QString arm = QStringLiteral("-arm64");
    if (path.endsWith(x86))
        return path.left(path.size() - x86.size()) + arm;
    if (path.endsWith(arm))
        return path.left(path.size() - arm.size()) + x86;
    const QString other = architectureSuffix(otherArchitecture(currentArchitecture()));
    return other.isEmpty() ? QString() : path + other;
}

void BinaryResolver::rememberFallback(const QString& tool, const QString& path)
{
    std::lock_guard lock(gFallbackMutex);
    fallbacks().insert(tool, QFileInfo(path).absoluteFilePath());
}

void BinaryResolver::forgetFallbacks()
{
    std::lock_guard lock(gFallbackMutex);
    fallbacks().clear();
}

} // namespace folivox
