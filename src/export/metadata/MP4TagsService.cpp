#include "export/metadata/MP4TagsService.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"
#include "process/BinaryResolver.h"
#include "process/PathValidator.h"
#include "process/ToolRunner.h"
#include "platform/L10n.h"

namespace folivox {

template<>
struct EnumNames<MP4TagsService::MediaType> {
    static constexpr const char* typeName = "MediaType";
    static constexpr std::array items{
        std::pair{MP4TagsService::MediaType::audiobook, "audiobook"},
        std::pair{MP4TagsService::MediaType::music, "music"},
        std::pair{MP4TagsService::MediaType::podcast, "podcast"},
    };
};

QString MP4TagsService::Error::description() const
{
    switch (kind_) {
    case Kind::operationFailed:
        return L10n::text("metadata.mp4tags.failedStatus", "mp4tags failed with status ") + QString::number(status_);
    case Kind::binaryNotFound:
        return L10n::text("metadata.mp4tags.notFound", "mp4tags binary not found in app bundle");
    }
    return {};
}

QString MP4TagsService::mediaTypeName(MediaType type)
{
    return enumName(type);
}

QStringList MP4TagsService::ExtendedMetadata::arguments() const
{
    QStringList args;
    const auto add = [&](const char* option, const std::optional<QString>& value) {
        if (value)
            args << QString::fromLatin1(option) << *value;
    };
    add("-encodedby", encodedBy);
    add("-longdesc", longDescription);
    add("-sortname", sortTitle);
    add("-sortartist", sortArtist);
    add("-sortalbum", sortAlbum);
    add("-sortalbumartist", sortAlbumArtist);
    if (mediaType)
        args << QStringLiteral("-type") << mediaTypeName(*mediaType);
    return args;
}

QJsonObject MP4TagsService::ExtendedMetadata::toJson() const
{
    return JsonWriter()
        .set("encodedBy", encodedBy)
        .set("longDescription", longDescription)
        .set("sortTitle", sortTitle)
        .set("sortArtist", sortArtist)
        .set("sortAlbum", sortAlbum)
        .set("sortAlbumArtist", sortAlbumArtist)
        .set("mediaType", mediaType)
        .object();
}

MP4TagsService::ExtendedMetadata MP4TagsService::ExtendedMetadata::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ExtendedMetadata m;
    m.encodedBy = r.optionalString("encodedBy");
    m.longDescription = r.optionalString("longDescription");
    m.sortTitle = r.optionalString("sortTitle");
    m.sortArtist = r.optionalString("sortArtist");
    m.sortAlbum = r.optionalString("sortAlbum");
    m.sortAlbumArtist = r.optionalString("sortAlbumArtist");
    m.mediaType = r.optionalEnumeration<MediaType>("mediaType");
    return m;
}

MP4TagsService::MP4TagsService(std::optional<QStringList> toolsDirectories)
    : toolsDirectories_(std::move(toolsDirectories))
{
}

QString MP4TagsService::binaryPath() const
{
    const BinaryResolver resolver = toolsDirectories_ ? BinaryResolver(*toolsDirectories_) : BinaryResolver();
    const auto path = resolver.find(QStringLiteral("mp4tags"));
    if (!path)
        throw Error::binaryNotFound();
    return *path;
}

ToolRunResult MP4TagsService::write(const QString& file, const QStringList& tagArguments,
                                    const ExtendedMetadata& extended, double timeoutSeconds,
                                    const CancellationToken& token) const
{
    const QString binary = binaryPath();
    PathValidator::validate(file);
    ToolRunner::Options options;
    options.toolsDirectories = toolsDirectories_;
    return ToolRunner(options).runBinary(QStringLiteral("mp4tags"), binary,
                                         tagArguments + extended.arguments() + QStringList{file}, timeoutSeconds, token);
}

} // namespace folivox
