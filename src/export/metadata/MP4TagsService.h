#pragma once

#include "process/CancellationToken.h"
#include "process/ToolRunResult.h"
#include "platform/Error.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Runs the mp4tags tool on one file.
class MP4TagsService {
public:
    class Error : public folivox::Error {
    public:
        enum class Kind { operationFailed, binaryNotFound };

        static Error operationFailed(int status) { return Error(Kind::operationFailed, status); }
        static Error binaryNotFound()
        {
            Error e(Kind::binaryNotFound, 0);
            e.setCause(Cause::missingTool);
            return e;
        }

        Kind kind() const { return kind_; }
        int status() const { return status_; }
        // "mp4tags failed with status N" / "mp4tags binary not found in app bundle".
        QString description() const override;

    private:
        Error(Kind kind, int status) : kind_(kind), status_(status) {}
        Kind kind_;
        int status_;
    };

    // Tags beyond the basic ones, each carried by its own option.
    struct ExtendedMetadata {
        // The values of "-type"; the option takes the case's name.
        enum class MediaType { audiobook, music, podcast };

        std::optional<QString> encodedBy;       // -encodedby
        std::optional<QString> longDescription; // -longdesc
        std::optional<QString> sortTitle;       // -sortname
        std::optional<QString> sortArtist;      // -sortartist
        std::optional<QString> sortAlbum;       // -sortalbum
        std::optional<QString> sortAlbumArtist; // -sortalbumartist
        std::optional<MediaType> mediaType;     // -type

        // The options for the fields that are set, in field order.
        QStringList arguments() const;

        QJsonObject toJson() const;
        static ExtendedMetadata fromJson(const QJsonObject& json);
        bool operator==(const ExtendedMetadata&) const = default;
    };
    using MediaType = ExtendedMetadata::MediaType;

    // "audiobook", "music", "podcast".
    static QString mediaTypeName(MediaType type);

    // Tools are looked up in these folders (then PATH); by default
    // BinaryResolver's.
    explicit MP4TagsService(std::optional<QStringList> toolsDirectories = std::nullopt);

    // The binary, or Error::binaryNotFound.
    QString binaryPath() const;

    // Runs "mp4tags <tagArguments> <extended arguments> <file>". Throws
    // Error::binaryNotFound before anything starts, and
    // FFmpegWrapperError::invalidPath for a path that may not reach a
    // command line; every failure of the run is in the result.
    ToolRunResult write(const QString& file, const QStringList& tagArguments, const ExtendedMetadata& extended,
                        double timeoutSeconds, const CancellationToken& token) const;

private:
    std::optional<QStringList> toolsDirectories_;
};

} // namespace folivox
