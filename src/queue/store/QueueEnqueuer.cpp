#include "queue/store/QueueEnqueuer.h"

#include "build/BuildFailure.h"
#include "build/BuildOutputPlanner.h"
#include "platform/L10n.h"
#include "queue/records/QueueError.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSet>

namespace folivox {

namespace {

QSet<QString> plannedByOthers(const std::vector<QueueJob>& existing)
{
    QSet<QString> taken;
    for (const QueueJob& job : existing) {
        // A finished job's output is on disk (and checked there) or was never made.
        if (job.status == QueueJobStatus::completed || job.status == QueueJobStatus::cancelled
            || job.status == QueueJobStatus::skipped)
            continue;
        taken.insert(job.plannedOutputPath());
    }
    return taken;
}

QString jobOf(const std::vector<QueueJob>& existing, const QString& path)
{
    for (const QueueJob& job : existing)
        if (job.plannedOutputPath() == path)
            return job.id.toString(QUuid::WithoutBraces).toUpper().left(8);
    return {};
}

QString coverFileName(const QByteArray& bytes)
{
    return bytes.startsWith("\x89PNG") ? QStringLiteral("cover.png") : QStringLiteral("cover.jpg");
}

} // namespace

QueueEnqueuer::Plan QueueEnqueuer::planOutput(const BuildRequest& build, const QString& title,
                                              const OutputOrganization& organization, const OrganizationContext& context,
                                              const std::vector<QueueJob>& existing)
{
    const OutputFormat format = build.settings.outputFormat;
    const QSet<QString> taken = plannedByOthers(existing);
    const bool namedByUser = build.output && !QFileInfo(*build.output).isDir();
    Plan plan;
    if (namedByUser) {
        if (!organization.folderTemplate.isEmpty())
            throw BuildFailure::usage(L10n::text("queue.add.organizeNeedsFolder",
                                                 "--organize puts each book in folders of its own: give -o a folder, "
                                                 "not a file name"),
                                      *build.output);
        const QString path = BuildOutputPlanner::plan(build.output, title, format);
        plan.root = QFileInfo(path).absolutePath();
        plan.basename = QFileInfo(path).fileName();
        plan.path = QDir::cleanPath(path);
        if (taken.contains(plan.path))
            throw QueueError::outputTaken(plan.path, jobOf(existing, plan.path));
    } else {
        plan.root = QDir::cleanPath(build.output ? QFileInfo(*build.output).absoluteFilePath() : QDir::currentPath());
        const QString folders = organization.folderFor(context);
        const QString folder = folders.isEmpty() ? plan.root : QDir(plan.root).filePath(folders);
        const QString first = BuildOutputPlanner::defaultOutput(title, format, folder);
        QString path = QDir::cleanPath(first);
        const QFileInfo info(first);
        const QString suffix = format == OutputFormat::m4b ? QStringLiteral(".m4b") : QString();
        const QString base = format == OutputFormat::m4b ? info.completeBaseName() : info.fileName();
        for (int n = 2; taken.contains(path); ++n)
            path = QDir::cleanPath(QDir(folder).filePath(QStringLiteral("%1 (%2)%3").arg(base).arg(n).arg(suffix)));
        plan.basename = QFileInfo(path).fileName();
        plan.path = path;
    }
    // The checks of a build, now: a name the file system takes, a
    // destination that is a folder, nothing in the way unless replacing.
    if (!QFileInfo(plan.root).isDir())
        throw BuildFailure::failed(L10n::format(L10n::text("build.output.noFolder",
                                                           "the folder '%@' for the output does not exist: create it, "
                                                           "or give -o a folder that does"),
                                                {plan.root}),
                                   plan.root);
    if (QFileInfo(QFileInfo(plan.path).absolutePath()).isDir()) {
        BuildOutputPlanner::check(plan.path, format);
        BuildOutputPlanner::checkReplace(plan.path, format, build.replaceExisting);
    } else if (BuildOutputPlanner::longestDerivedNameBytes(plan.basename, format) > 255) {
        BuildOutputPlanner::check(plan.path, format); // names the problem
    }
    return plan;
}

QueueJob QueueEnqueuer::make(const Request& request, const std::vector<QueueJob>& existing, QueueStore& store,
                             std::shared_ptr<const CancellationToken> token, const BuildUseCase::Sinks& sinks)
{
    QueueJob job;
    job.id = QUuid::createUuid();
    job.createdAt = QDateTime::currentDateTimeUtc();
    job.settings = request.build.settings;
    job.forcedOutputFormat = request.build.settings.outputFormat;
    job.organization = request.organization;
    job.organization.replacesExisting = request.build.replaceExisting;
    job.organizationIsPinned = request.organizationPinned;

    BookMetadata metadata;
    QByteArray cover;
    if (request.libraryBook) {
        metadata = request.build.tags.applied(request.libraryBook->metadata);
        job.origin = QueueJobOrigin::book(request.libraryBook->bookID);
        job.settingsOverrideBookSettings = request.settingsGiven;
    } else {
        ImportedBook book = BuildUseCase().importBook(request.build, std::move(token), sinks);
        metadata = book.metadata;
        cover = book.metadata.coverImageData.value_or(QByteArray());
        book.metadata.coverImageData.reset();
        CandidatePayload payload;
        for (const QString& input : request.build.inputs)
            payload.inputs << QFileInfo(input).absoluteFilePath();
        payload.book = std::move(book);
        if (!cover.isEmpty())
            payload.coverFile = coverFileName(cover);
        job.origin = QueueJobOrigin::fromCandidate(std::move(payload));
        job.settingsOverrideBookSettings = true;
    }
    if (metadata.title.trimmed().isEmpty())
        metadata.title = QStringLiteral("Audiobook");
    job.displayTitle = metadata.title;
    job.displayAuthor = metadata.author;
    job.organizationContext = OrganizationContext::from(metadata);

    const Plan plan = planOutput(request.build, metadata.title, job.organization, job.organizationContext, existing);
    job.outputURL = QUrl::fromLocalFile(plan.root);
    job.plannedBasename = plan.basename;
    if (job.origin.candidate) {
        CandidatePayload& payload = *job.origin.candidate;
        QList<QPair<QString, QByteArray>> files{
            {QStringLiteral("book.json"), QJsonDocument(payload.book->toJson()).toJson(QJsonDocument::Compact)}};
        if (!cover.isEmpty())
            files.append({*payload.coverFile, cover});
        store.writeNewJobFiles(job.id, files);
        payload.bookFile = QStringLiteral("book.json");
        payload.book.reset();
    }
    return job;
}

} // namespace folivox
