#pragma once

#include "support/KillAtPoint.h"

#include "container/io/FaultInjection.h"
#include "queue/records/QueueJob.h"

#include <QDateTime>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <sys/wait.h>
#include <unistd.h>

namespace folivox::test {

// A queued candidate of one track (the file need not exist), for record and
// store tests.
inline QueueJob sampleJob(const QString& title, const QString& outputFolder = QStringLiteral("/tmp/out"))
{
    QueueJob job;
    job.id = QUuid::createUuid();
    job.createdAt = QDateTime::currentDateTimeUtc();
    CandidatePayload payload;
    payload.inputs = {QStringLiteral("/tmp/in/") + title};
    Track t;
    t.id = QUuid::createUuid();
    t.url = QUrl::fromLocalFile(QStringLiteral("/tmp/in/") + title + QStringLiteral("/01.m4a"));
    t.title = QStringLiteral("01");
    t.duration = 3;
    payload.book.emplace();
    payload.book->tracks = {t};
    Bookmark b;
    b.title = QStringLiteral("Chapter 1");
    b.tracks = {t};
    b.duration = 3;
    payload.book->bookmarks = {b};
    payload.book->metadata.title = title;
    job.origin = QueueJobOrigin::fromCandidate(payload);
    job.displayTitle = title;
    job.outputURL = QUrl::fromLocalFile(outputFolder);
    job.plannedBasename = title + QStringLiteral(".m4b");
    job.organizationContext.title = title;
    return job;
}

} // namespace folivox::test
