#pragma once

#include "process/CancellationToken.h"
#include "process/ToolRunResult.h"
#include "platform/Error.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Runs the mp4art tool on one file: adds or removes the cover in `covr`.
class MP4ArtService {
public:
    class Error : public folivox::Error {
    public:
        enum class Kind { operationFailed, binaryNotFound };

        static Error operationFailed(const QString& detail) { return Error(Kind::operationFailed, detail); }
        static Error binaryNotFound()
        {
            Error e(Kind::binaryNotFound, {});
            e.setCause(Cause::missingTool);
            return e;
        }

        Kind kind() const { return kind_; }
        const QString& detail() const { return detail_; }
        // The detail / "mp4art binary not found in app bundle".
        QString description() const override;

    private:
        Error(Kind kind, QString detail) : kind_(kind), detail_(std::move(detail)) {}
        Kind kind_;
        QString detail_;
    };

    explicit MP4ArtService(std::optional<QStringList> toolsDirectories = std::nullopt);

    // The binary, or Error::binaryNotFound.
    QString binaryPath() const;

    // "mp4art --add IMAGE FILE" and "mp4art --remove FILE". Throw
    // Error::binaryNotFound before anything starts and
    // FFmpegWrapperError::invalidPath for a refused path.
    ToolRunResult add(const QString& file, const QString& image, double timeoutSeconds, const CancellationToken& token) const;
    ToolRunResult remove(const QString& file, double timeoutSeconds, const CancellationToken& token) const;

private:
    ToolRunResult run(const QStringList& arguments, const QStringList& paths, double timeoutSeconds,
                      const CancellationToken& token) const;

    std::optional<QStringList> toolsDirectories_;
};

} // namespace folivox
