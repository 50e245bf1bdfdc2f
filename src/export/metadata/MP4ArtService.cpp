#include "export/metadata/MP4ArtService.h"

#include "process/BinaryResolver.h"
#include "process/PathValidator.h"
#include "process/ToolRunner.h"
#include "platform/L10n.h"

namespace folivox {

QString MP4ArtService::Error::description() const
{
    switch (kind_) {
    case Kind::operationFailed:
        return detail_;
    case Kind::binaryNotFound:
        return L10n::text("metadata.mp4art.notFound", "mp4art binary not found in app bundle");
    }
    return {};
}

MP4ArtService::MP4ArtService(std::optional<QStringList> toolsDirectories) : toolsDirectories_(std::move(toolsDirectories)) {}

QString MP4ArtService::binaryPath() const
{
    const BinaryResolver resolver = toolsDirectories_ ? BinaryResolver(*toolsDirectories_) : BinaryResolver();
    const auto path = resolver.find(QStringLiteral("mp4art"));
    if (!path)
        throw Error::binaryNotFound();
    return *path;
}

ToolRunResult MP4ArtService::run(const QStringList& arguments, const QStringList& paths, double timeoutSeconds,
                                 const CancellationToken& token) const
{
    const QString binary = binaryPath();
    PathValidator::validateAll(paths);
    ToolRunner::Options options;
    options.toolsDirectories = toolsDirectories_;
    return ToolRunner(options).runBinary(QStringLiteral("mp4art"), binary, arguments, timeoutSeconds, token);
}

ToolRunResult MP4ArtService::add(const QString& file, const QString& image, double timeoutSeconds,
                                 const CancellationToken& token) const
{
    return run({QStringLiteral("--add"), image, file}, {image, file}, timeoutSeconds, token);
}

ToolRunResult MP4ArtService::remove(const QString& file, double timeoutSeconds, const CancellationToken& token) const
{
    return run({QStringLiteral("--remove"), file}, {file}, timeoutSeconds, token);
}

} // namespace folivox
