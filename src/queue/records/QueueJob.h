#pragma once

#include "core/settings/ExportSettings.h"
#include "queue/records/JobAttempt.h"
#include "queue/records/OrganizationContext.h"
#include "queue/records/OutputOrganization.h"
#include "queue/records/QueueJobOrigin.h"
#include "queue/records/QueueJobStatus.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <array>
#include <optional>
#include <vector>

namespace folivox {

// One queued build, complete in itself: where the book comes from, the
// settings it is built with, where it goes, and every attempt so far.
//
// The output of the build is outputURL (the destination folder), the
// organization's folders inside it, then plannedBasename: the file name of
// an M4B, or the folder of per-chapter files. The name is reserved when the
// job is queued, so that two jobs never write the same file.
//
// progress and progressPhase live only in memory and are never saved.
struct QueueJob {
    // The keys of the saved form, in this order.
    static constexpr std::array<const char*, 17> kCodingKeys{
        "id", "createdAt", "origin", "displayTitle", "displayAuthor", "coverThumbnailData", "outputURL",
        "outputBookmarkData", "settings", "settingsOverrideBookSettings", "forcedOutputFormat", "organization",
        "organizationContext", "status", "attempts", "organizationIsPinned", "plannedBasename"};

    QUuid id;
    QDateTime createdAt;
    QueueJobOrigin origin;
    QString displayTitle;
    std::optional<QString> displayAuthor;
    std::optional<QByteArray> coverThumbnailData;
    QUrl outputURL;
    // Scoped access to the destination; there is none off macOS.
    std::optional<QByteArray> outputBookmarkData;
    ExportSettings settings;
    // For a library book: the settings above win over the book's own when
    // the job runs (the user chose them when queuing).
    bool settingsOverrideBookSettings = true;
    std::optional<OutputFormat> forcedOutputFormat;
    OutputOrganization organization;
    OrganizationContext organizationContext;
    // Keeps this organization when the default one changes.
    bool organizationIsPinned = false;
    std::optional<QString> plannedBasename;
    QueueJobStatus status = QueueJobStatus::pending;
    std::vector<JobAttempt> attempts;

    double progress = 0;
    std::optional<QString> progressPhase;

    // The path the build writes: the destination, the organization's
    // folders, then the planned name.
    QString plannedOutputPath() const;
    // The message of the last failed attempt, if the last attempt failed.
    std::optional<QString> lastErrorMessage() const;

    QJsonObject toJson() const;
    static QueueJob fromJson(const QJsonObject& json);
};

} // namespace folivox
