#include "inplace/DefaultInPlaceUpdateService.h"

#include "container/io/FaultInjection.h"
#include "container/mp4/FtypPatcher.h"
#include "container/mp4/LanguageCodes.h"
#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "container/mp4/MP4File.h"
#include "container/io/SafeFileReplace.h"
#include "export/metadata/CoverImageProcessor.h"
#include "export/engine/ExportError.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "export/metadata/MP4ArtService.h"
#include "export/metadata/MetadataItemBuilder.h"
#include "export/metadata/MetadataWritingError.h"
#include "process/PathValidator.h"
#include "inplace/DefaultInPlaceEligibilityService.h"
#include "inplace/InPlaceBackupStore.h"
#include "inplace/InPlaceUpdateError.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QBuffer>
#include <QFile>
#include <QDir>
#include <QFileInfo>
#include <QImage>

#include <algorithm>

namespace folivox {

namespace {
void log(const QString& message)
{
    Log::write(QStringLiteral("[InPlaceUpdate] ") + message);
}

void report(const InPlaceProgress& progress, const char* key, double fraction)
{
    if (progress)
        progress(QString::fromLatin1(key), std::clamp(fraction, 0.0, 1.0));
}

bool isCancellation(const ExportError& e)
{
    return e.kind() == ExportError::Kind::cancelled;
}

QString nameOf(const QString& path)
{
    return QFileInfo(path).fileName();
}
} // namespace

DefaultInPlaceUpdateService::DefaultInPlaceUpdateService() : DefaultInPlaceUpdateService(DefaultMetadataWritingService::Options{}) {}

DefaultInPlaceUpdateService::DefaultInPlaceUpdateService(DefaultMetadataWritingService::Options options)
    : options_(std::move(options))
{
}

QStringList DefaultInPlaceUpdateService::externalCoverNames()
{
    return {QStringLiteral("cover.jpg"), QStringLiteral("cover.jpeg"), QStringLiteral("cover.png"),
            QStringLiteral("folder.jpg"), QStringLiteral("folder.png")};
}

QString DefaultInPlaceUpdateService::updateMetadata(const BookMetadata& metadata, const QList<ChapterInfo>& chapters,
                                                    const InPlaceUpdateMode& mode, const CancellationToken& token,
                                                    const InPlaceProgress& progress, const InPlaceUpdateOptions& options)
{
    log(QStringLiteral("=== STARTING updateMetadata ==="));
    log(QStringLiteral("Title: '%1'").arg(metadata.title));
    log(QStringLiteral("Author: '%1'").arg(metadata.author.value_or(QString())));
    log(QStringLiteral("Chapters: %1").arg(chapters.size()));
    if (mode.kind == InPlaceUpdateMode::Kind::singleFile)
        log(QStringLiteral("Mode: singleFile '%1'").arg(nameOf(mode.url)));
    else
        log(QStringLiteral("Mode: multipleFiles (%1)").arg(mode.files.size()));

    const QStringList targets = mode.paths();
    for (const QString& t : targets) {
        if (!inPlaceSourceFormatFor(t))
            throw InPlaceUpdateError::unsupportedFormat(nameOf(t));
        if (!QFileInfo(t).isFile())
            throw InPlaceUpdateError::fileNotFound(nameOf(t));
        if (!DefaultInPlaceEligibilityService::isWritable(t))
            throw InPlaceUpdateError::fileNotWritable(nameOf(t));
    }

    report(progress, "inplace.progress.creating.backup", 0);
    InPlaceBackupStore::purge();
    const QString session = InPlaceBackupStore::createSession();
    QStringList backups;
    try {
        for (const QString& t : targets) {
            backups << InPlaceBackupStore::backup(session, t);
            report(progress, "inplace.progress.creating.backup", 0.2 * backups.size() / targets.size());
        }
    } catch (...) {
        // Nothing was written: a half-made session is of no use to anyone.
        QDir(session).removeRecursively();
        throw;
    }
    if (options.backupCreated)
        options.backupCreated(session);

    InPlaceTagWriter::Change base;
    base.metadata = metadata;
    base.titleGiven = !metadata.title.trimmed().isEmpty();
    base.removeCover = options.removeCover;
    if (!options.removeCover && metadata.coverImageData && !metadata.coverImageData->isEmpty())
        base.cover = metadata.coverImageData;

    if (mode.kind == InPlaceUpdateMode::Kind::singleFile) {
        FileJob job{mode.url, backups.first(), mode.format, base, chapters};
        writeFile(job, token, progress, 0.2, 0.75);
        if (base.cover)
            updateExternalCover(mode.url, *base.cover, session);
        report(progress, "inplace.progress.completed", 1);
        log(QStringLiteral("writeM4BMetadata: SUCCESS for '%1'").arg(nameOf(mode.url)));
        return session;
    }

    const int count = int(mode.files.size());
    for (int i = 0; i < count; ++i) {
        if (token.isCancelled()) {
            log(QStringLiteral("cancelled after %1 of %2 file(s)").arg(i).arg(count));
            throw ExportError::cancelled();
        }
        const InPlaceUpdateMode::FileUpdate& f = mode.files.at(i);
        log(QStringLiteral("writePerFileM4A: '%1'").arg(nameOf(f.url)));
        FileJob job{f.url, backups.at(i), *inPlaceSourceFormatFor(f.url), base, {}};
        job.change.placement = FilePlacement::track(f.chapterTitle, i + 1, count);
        if (f.chapterTitle.isEmpty())
            job.change.placement.title.reset();
        if (f.artworkData && !f.artworkData->isEmpty() && !options.removeCover)
            job.change.cover = f.artworkData;
        // A cancel lets the current file finish: its write does not see the token.
        writeFile(job, ManualCancellationToken(), progress, 0.2 + 0.75 * i / count, 0.75 / count);
    }
    if (base.cover && count > 0)
        updateExternalCover(mode.files.first().url, *base.cover, session);
    report(progress, "inplace.progress.completed", 1);
    log(QStringLiteral("writePerFileM4A: SUCCESS for %1 file(s)").arg(count));
    return session;
}

void DefaultInPlaceUpdateService::writeFile(const FileJob& job, const CancellationToken& token, const InPlaceProgress& progress,
                                            double base, double share)
{
    const QString name = nameOf(job.target);
    WorkDirectory work;
    const QString working = work.filePath(QStringLiteral("input.") + QFileInfo(job.target).suffix().toLower());
    try {
        InPlaceBackupStore::cloneOrCopy(job.backup, working);
    } catch (const MP4FileError& e) {
        throw InPlaceUpdateError::metadataWriteFailed(QStringLiteral("\"%1\": %2").arg(name, e.systemMessage()));
    } catch (const Error& e) {
        throw InPlaceUpdateError::metadataWriteFailed(QStringLiteral("\"%1\": %2").arg(name, e.description()));
    }
    log(QStringLiteral("working copy of '%1' cloned from session backup").arg(name));

    QString finished = working;
    if (isMP4Format(job.format)) {
        writeMP4(working, work.path(), job, token, progress, base, share);
        if (QFileInfo::exists(work.filePath(QStringLiteral("output.m4b"))))
            finished = work.filePath(QStringLiteral("output.m4b"));
    } else {
        report(progress, "inplace.progress.writing.metadata", base);
        try {
            InPlaceTagWriter::write(working, job.format, job.change);
        } catch (const Error& e) {
            throw InPlaceUpdateError::metadataWriteFailed(QStringLiteral("\"%1\": %2").arg(name, e.description()));
        }
        if (job.change.cover)
            report(progress, "inplace.progress.writing.cover", base + share * 0.8);
    }
    FaultInjection::reach("inplace.file.prepared");

    const std::uint64_t expected = std::uint64_t(QFileInfo(finished).size());
    try {
        SafeFileReplace::replace(finished, job.target);
    } catch (const SafeFileReplace::WriteInterruptedError&) {
        work.release(); // the complete new file is in there
        throw;
    } catch (const Error& e) {
        throw InPlaceUpdateError::metadataWriteFailed(QStringLiteral("\"%1\": %2").arg(name, e.description()));
    }
    FaultInjection::reach("inplace.file.replaced");
    const std::uint64_t written = std::uint64_t(QFileInfo(job.target).size());
    if (written != expected) {
        log(QStringLiteral("size check FAILED for '%1': %2 of %3 bytes; restoring from backup").arg(name).arg(written).arg(expected));
        const QString restore = work.filePath(QStringLiteral("restore.") + QFileInfo(job.target).suffix());
        InPlaceBackupStore::cloneOrCopy(job.backup, restore);
        SafeFileReplace::replace(restore, job.target);
        throw InPlaceUpdateError::writeVerificationFailed(expected, written);
    }
}

void DefaultInPlaceUpdateService::writeMP4(const QString& working, const QString& workDir, const FileJob& job,
                                           const CancellationToken& token, const InPlaceProgress& progress, double base,
                                           double share)
{
    const QString name = nameOf(job.target);
    const BookMetadata& m = job.change.metadata;
    QList<MetadataItem> items = MetadataItemBuilder::items(m, job.change.placement);
    if (!job.change.titleGiven && !job.change.placement.title) {
        // No new title: keep the file's own title and album.
        items.erase(std::remove_if(items.begin(), items.end(),
                                   [](const MetadataItem& i) { return i.atom == QStringLiteral("©nam") || i.atom == QStringLiteral("©alb"); }),
                    items.end());
    }
    // The tools edit the working copy where it lies (it is inside
    // FolivoxWork). The container is finished below rather than by the
    // writer: the book was laid out by its build, and a fresh relocation of
    // `moov` would rewrite the whole file for nothing.
    DefaultMetadataWritingService::WriteOptions w;
    w.editInPlace = true;
    DefaultMetadataWritingService writer(options_);
    const QByteArray cover = job.change.cover.value_or(QByteArray());
    const bool hasTags = !items.isEmpty() || !cover.isEmpty();

    bool normalized = false;
    bool chaptersDone = false;
    report(progress, "inplace.progress.writing.metadata", base);
    const auto fallBack = [&](const QString& why) {
        log(QStringLiteral("mp4 tools failed for '%1' (%2); falling back to the ffmpeg remux").arg(name, why));
        normalized = true;
    };
    try {
        if (job.change.removeCover) {
            const MP4ArtService art(options_.toolsDirectories);
            const ToolRunResult r = art.remove(working, options_.toolTimeoutSeconds, token);
            if (!r.success)
                throw MetadataWritingError::mp4artFailed(r.standardError.trimmed());
        }
        if (!cover.isEmpty())
            report(progress, "inplace.progress.writing.cover", base + share * 0.3);
        if (hasTags && !job.chapters.isEmpty()) {
            report(progress, "inplace.progress.writing.chapters", base + share * 0.6);
            writer.writeMetadataAndChapters(working, items, cover, job.chapters, token, w);
            chaptersDone = true;
        } else if (hasTags) {
            writer.writeMetadata(working, items, cover, token, w);
        }
    } catch (const MetadataWritingError& e) {
        if (e.kind() == MetadataWritingError::Kind::mp4chapsFailed)
            throw InPlaceUpdateError::chaptersWriteFailed(e.description());
        fallBack(e.description());
    } catch (const ExportError& e) {
        if (isCancellation(e))
            throw;
        fallBack(e.description());
    } catch (const InPlaceUpdateError&) {
        throw;
    } catch (const Error& e) {
        fallBack(e.description());
    }

    QString target = working;
    if (normalized) {
        // Start again from the untouched backup: the tools may have left
        // the working copy half edited.
        QFile::remove(working);
        InPlaceBackupStore::cloneOrCopy(job.backup, working);
        target = QDir(workDir).filePath(QStringLiteral("output.m4b"));
        writeM4BMetadataViaRemuxFallback(working, target, job, token);
        QFile::remove(working);
        chaptersDone = false;
    }

    if (!job.chapters.isEmpty() && !chaptersDone) {
        report(progress, "inplace.progress.writing.chapters", base + share * 0.6);
        try {
            writer.writeChapters(target, job.chapters, token, w);
            chaptersDone = true;
        } catch (const ExportError& e) {
            if (isCancellation(e))
                throw;
            if (!normalized)
                throw InPlaceUpdateError::chaptersWriteFailed(e.description());
            log(QStringLiteral("Warning: chapters failed on normalized container: ") + e.description());
        } catch (const Error& e) {
            if (!normalized)
                throw InPlaceUpdateError::chaptersWriteFailed(e.description());
            log(QStringLiteral("Warning: chapters failed on normalized container: ") + e.description());
        }
    }

    // The container patches of the build that a tag edit can undo.
    if (chaptersDone)
        MP4ChapterTrackLanguagePatcher::stampChapterTrackNonFatal(target, LanguageCodes::chapterTrackLanguage(m.language));
    const QList<MP4LanguageAtomWriter::FreeformTag> freeform = MetadataItemBuilder::freeformTags(items);
    const bool hasLanguage = m.language && !m.language->trimmed().isEmpty();
    if (hasLanguage || !freeform.isEmpty()) {
        const QString iso = hasLanguage ? LanguageCodes::toISO6392(m.language->trimmed()).value_or(QString()) : QString();
        MP4LanguageAtomWriter::write(target, hasLanguage ? std::optional<QString>(m.language->trimmed()) : std::nullopt, iso, freeform);
    }
    if (job.format == InPlaceSourceFormat::m4b) {
        try {
            FtypPatcher::patch(target);
        } catch (const Error& e) {
            log(QStringLiteral("ftyp patch FAILED (non-fatal): ") + e.description());
        }
    }
}

void DefaultInPlaceUpdateService::writeM4BMetadataViaRemuxFallback(const QString& input, const QString& output,
                                                                    const FileJob& job, const CancellationToken& token)
{
    log(QStringLiteral("writeM4BMetadataViaRemuxFallback: '%1'").arg(nameOf(job.target)));
    const QString dir = QFileInfo(output).absolutePath();
    QString coverPath;
    if (job.change.cover) {
        QString type = CoverImageProcessor::imageType(*job.change.cover);
        if (type.isEmpty())
            type = QStringLiteral("jpg");
        coverPath = QDir(dir).filePath(QStringLiteral("cover.") + type);
        QFile f(coverPath);
        if (!f.open(QIODevice::WriteOnly) || f.write(*job.change.cover) != job.change.cover->size())
            throw InPlaceUpdateError::exportSessionCreationFailed();
    }
    for (const QString& p : {input, output, coverPath})
        if (!p.isEmpty() && PathValidator::problem(p))
            throw InPlaceUpdateError::exportSessionCreationFailed();

    QStringList args{QStringLiteral("-hide_banner"), QStringLiteral("-nostats"), QStringLiteral("-i"), input};
    if (!coverPath.isEmpty())
        args << QStringLiteral("-i") << coverPath;
    args << QStringLiteral("-map") << QStringLiteral("0:a");
    if (!coverPath.isEmpty())
        args << QStringLiteral("-map") << QStringLiteral("1:v");
    else if (!job.change.removeCover)
        args << QStringLiteral("-map") << QStringLiteral("0:v?");
    args << QStringLiteral("-map_metadata") << QStringLiteral("0") << QStringLiteral("-map_chapters") << QStringLiteral("0")
         << QStringLiteral("-c") << QStringLiteral("copy");
    if (!coverPath.isEmpty())
        args << QStringLiteral("-disposition:v:0") << QStringLiteral("attached_pic");
    for (const MetadataItem& item : MetadataItemBuilder::items(job.change.metadata, job.change.placement)) {
        const QString key = MetadataItemBuilder::ffmpegKey(item.atom);
        if (key.isEmpty() || item.value.isEmpty() || item.atom == QStringLiteral("stik"))
            continue;
        if ((item.atom == QStringLiteral("©nam") || item.atom == QStringLiteral("©alb")) && !job.change.titleGiven
            && !job.change.placement.title)
            continue;
        QString value = item.value;
        if (item.total)
            value += u'/' + QString::number(*item.total);
        args << QStringLiteral("-metadata") << key + u'=' + value;
    }
    args << QStringLiteral("-f") << QStringLiteral("ipod") << QStringLiteral("-y") << output;

    FFmpegWrapper::Options ffOptions;
    ffOptions.ffmpegPath = options_.ffmpegPath;
    const FFmpegWrapper ffmpeg(ffOptions);
    const FFmpegResult r = ffmpeg.run(args, std::nullopt, token);
    if (!r.succeeded()) {
        if (token.isCancelled())
            throw ExportError::cancelled();
        QFile::remove(output);
        throw InPlaceUpdateError::exportSessionFailed(
            QStringLiteral("failed: ") + r.error.value_or(r.stderr.trimmed().right(500)));
    }
    if (!QFileInfo(output).isFile() || QFileInfo(output).size() == 0)
        throw InPlaceUpdateError::noOutputFileCreated();
    log(QStringLiteral("remux fallback OK in %1").arg(r.duration, 0, 'f', 2));
}

void DefaultInPlaceUpdateService::updateExternalCover(const QString& bookFile, const QByteArray& cover, const QString& session)
{
    const QDir dir = QFileInfo(bookFile).absoluteDir();
    for (const QString& n : externalCoverNames()) {
        const QString path = dir.filePath(n);
        if (!QFileInfo(path).isFile())
            continue;
        try {
            QByteArray bytes = cover;
            const bool wantPng = n.endsWith(QStringLiteral(".png"));
            const QString type = CoverImageProcessor::imageType(cover);
            if ((wantPng && type != QStringLiteral("png")) || (!wantPng && type != QStringLiteral("jpg"))) {
                QImage image = QImage::fromData(cover);
                if (image.isNull())
                    throw GenericError(QStringLiteral("the cover is not an image"));
                bytes.clear();
                QBuffer buffer(&bytes);
                buffer.open(QIODevice::WriteOnly);
                if (!image.save(&buffer, wantPng ? "PNG" : "JPEG", wantPng ? -1 : 90))
                    throw GenericError(QStringLiteral("the cover could not be converted"));
            }
            InPlaceBackupStore::backup(session, path);
            SafeFileReplace::writeWhole(path, bytes);
            log(QStringLiteral("external cover '%1' updated").arg(n));
        } catch (const Error& e) {
            log(QStringLiteral("Warning: failed to update external cover '%1': %2").arg(n, e.description()));
        } catch (const std::exception& e) {
            log(QStringLiteral("Warning: failed to update external cover '%1': %2").arg(n, QString::fromUtf8(e.what())));
        }
        return;
    }
}

} // namespace folivox
