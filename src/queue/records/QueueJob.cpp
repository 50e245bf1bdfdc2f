#include "queue/records/QueueJob.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QDir>

namespace folivox {

QString QueueJob::plannedOutputPath() const
{
    QString path = outputURL.toLocalFile();
    const QString folders = organization.folderFor(organizationContext);
    if (!folders.isEmpty())
        path = QDir(path).filePath(folders);
    if (plannedBasename)
        path = QDir(path).filePath(*plannedBasename);
    return QDir::cleanPath(path);
}

std::optional<QString> QueueJob::lastErrorMessage() const
{
    if (attempts.empty() || !attempts.back().outcome || attempts.back().outcome->kind != JobAttempt::Outcome::Kind::failure)
        return std::nullopt;
    return attempts.back().outcome->message;
}

QJsonObject QueueJob::toJson() const
{
    return JsonWriter()
        .set("id", id)
        .set("createdAt", createdAt)
        .set("origin", origin)
        .set("displayTitle", displayTitle)
        .set("displayAuthor", displayAuthor)
        .set("coverThumbnailData", coverThumbnailData)
        .set("outputURL", outputURL)
        .set("outputBookmarkData", outputBookmarkData)
        .set("settings", settings)
        .set("settingsOverrideBookSettings", settingsOverrideBookSettings)
        .set("forcedOutputFormat", forcedOutputFormat)
        .set("organization", organization)
        .set("organizationContext", organizationContext)
        .set("status", status)
        .set("attempts", attempts)
        .set("organizationIsPinned", organizationIsPinned)
        .set("plannedBasename", plannedBasename)
        .object();
}

QueueJob QueueJob::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    QueueJob j;
    j.id = r.uuid("id");
    j.createdAt = r.date("createdAt");
    j.origin = r.value<QueueJobOrigin>("origin");
    j.displayTitle = r.string("displayTitle");
    j.displayAuthor = r.optionalString("displayAuthor");
    j.coverThumbnailData = r.optionalBytes("coverThumbnailData");
    j.outputURL = r.url("outputURL");
    j.outputBookmarkData = r.optionalBytes("outputBookmarkData");
    j.settings = r.value<ExportSettings>("settings");
    j.settingsOverrideBookSettings = r.boolean("settingsOverrideBookSettings");
    j.forcedOutputFormat = r.optionalEnumeration<OutputFormat>("forcedOutputFormat");
    j.organization = r.value<OutputOrganization>("organization");
    j.organizationContext = r.value<OrganizationContext>("organizationContext");
    j.status = r.enumeration<QueueJobStatus>("status");
    j.attempts = r.list<JobAttempt>("attempts");
    j.organizationIsPinned = r.boolean("organizationIsPinned");
    j.plannedBasename = r.optionalString("plannedBasename");
    return j;
}

} // namespace folivox
