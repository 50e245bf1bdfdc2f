#include "export/metadata/DefaultMetadataWritingService.h"

#include "container/mp4/FastStartRelocator.h"
#include "container/io/FileRangeCopier.h"
#include "container/mp4/FtypPatcher.h"
#include "container/mp4/LanguageCodes.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4StsdChannelPatcher.h"
#include "container/mp4/MP4TailSnapshot.h"
#include "container/io/SafeFileReplace.h"
#include "process/BinaryResolver.h"
#include "export/metadata/CoverImageProcessor.h"
#include "export/settings/CoverOptions.h"
#include "export/engine/ExportError.h"
#include "process/FFmpegWrapper.h"
#include "export/metadata/MP4ArtService.h"
#include "export/metadata/MP4TagsService.h"
#include "export/metadata/MetadataItemBuilder.h"
#include "export/metadata/MetadataWritingError.h"
#include "export/metadata/Mp3TagWriter.h"
#include "process/PathValidator.h"
#include "process/ToolLaunchError.h"
#include "process/ToolRunner.h"
#include "platform/AppPaths.h"
#include "platform/FailureCause.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <cerrno>
#include <cmath>

namespace folivox {

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

void log(const QString& message)
{
    Log::write(QStringLiteral("[MetadataWriting] ") + message);
}

QString secondsText(const QElapsedTimer& timer)
{
    return QString::number(double(timer.nsecsElapsed()) / 1e9, 'f', 2);
}

QString secondsText(double seconds)
{
    return QString::number(seconds, 'f', 2);
}

void throwIfCancelled(const CancellationToken& token)
{
    if (token.isCancelled())
        throw ExportError::cancelled();
}

void copyFile(const QString& from, const QString& to)
{
    try {
        FileRangeCopier::copyFile(from, to, 0600);
    } catch (const MP4FileError& e) {
        throw ExportError::underlying(QStringLiteral("Could not copy \"%1\" for metadata writing: %2")
                                          .arg(QFileInfo(from).fileName(), e.systemMessage()),
                                      QStringLiteral("MetadataWriting"), e.cause());
    }
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    errno = 0;
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size() || !f.flush()) {
        const int err = errno;
        throw ExportError::underlying(QStringLiteral("Could not write \"%1\": %2").arg(QFileInfo(path).fileName(), f.errorString()),
                                      QStringLiteral("MetadataWriting"), FailureCause::ofFailedWrite(path, err));
    }
}

// A helper tool's failure on the working file: the tools say only that a
// write failed, so a full or read-only disk is read off the file's volume.
MetadataWritingError onVolumeOf(MetadataWritingError error, const QString& working)
{
    error.setCause(FailureCause::ofVolumeAt(working));
    return error;
}

// What a failed tool run said: its stderr line, else the runner's text.
QString toolDetail(const ToolRunResult& r)
{
    const QString err = r.standardError.trimmed();
    if (!err.isEmpty())
        return err;
    return r.error.value_or(QStringLiteral("exit %1").arg(r.terminationStatus));
}

// A run that did not succeed: a cancellation and a timeout have their own
// texts; anything else is the tool's own failure, for the caller to wrap.
void throwIfStoppedByRunner(const ToolRunResult& r, const CancellationToken& token)
{
    if (r.cancelled || token.isCancelled())
        throw ExportError::cancelled();
    if (r.timedOut)
        throw ExportError::underlying(r.error.value_or(QString()), QStringLiteral("ToolTimeout"));
}

std::optional<QString> nonBlank(const std::optional<QString>& value)
{
    if (!value || value->trimmed().isEmpty())
        return std::nullopt;
    return value->trimmed();
}

const MP4BoxTree::Node* soundTable(const MP4BoxTree::Node& moov)
{
    for (const MP4BoxTree::Node& trak : moov.children) {
        if (trak.type != fc("trak") || !trak.isContainer)
            continue;
        const MP4BoxTree::Node* mdia = trak.child(fc("mdia"));
        const MP4BoxTree::Node* hdlr = mdia ? mdia->child(fc("hdlr")) : nullptr;
        if (!hdlr || hdlr->isContainer || hdlr->payload.size() < 12 || MP4Bytes::be32(hdlr->payload.constData() + 8) != fc("soun"))
            continue;
        const MP4BoxTree::Node* minf = mdia->child(fc("minf"));
        return minf ? minf->child(fc("stbl")) : nullptr;
    }
    return nullptr;
}

// The sample durations and sizes of the sound track: a tag edit never
// changes them.
QByteArray audioSignature(const QString& path)
{
    try {
        const MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(path).data);
        const MP4BoxTree::Node* stbl = soundTable(moov);
        if (!stbl)
            return {};
        QByteArray sig;
        for (std::uint32_t t : {fc("stts"), fc("stsz"), fc("stz2")})
            if (const MP4BoxTree::Node* n = stbl->child(t))
                sig += MP4BoxTree::serialize(*n);
        return sig;
    } catch (const Error&) {
        return {};
    }
}

// The length of the movie in milliseconds from mvhd, read without loading
// the whole moov.
std::optional<std::int64_t> movieDurationMs(const QString& path)
{
    try {
        const MP4File file(path, MP4File::Access::read);
        const std::uint64_t size = file.size();
        for (const MP4BoxHeader& h : MP4BoxHeader::listTopLevel(file, size)) {
            if (!h.is(fc("moov")))
                continue;
            const MP4BoxHeader mvhd = MP4BoxHeader::readAt(file, h.contentOffset(), h.end());
            if (!mvhd.is(fc("mvhd")))
                return std::nullopt;
            const QByteArray p = file.readAt(mvhd.contentOffset(), 32);
            if (p.size() < 32)
                return std::nullopt;
            const bool v1 = p.at(0) == 1;
            const std::uint32_t scale = MP4Bytes::be32(p.constData() + (v1 ? 20 : 12));
            const std::uint64_t duration = v1 ? MP4Bytes::be64(p.constData() + 24) : MP4Bytes::be32(p.constData() + 16);
            if (!scale)
                return std::nullopt;
            return std::int64_t(std::llround(double(duration) * 1000.0 / scale));
        }
    } catch (const Error&) {
    }
    return std::nullopt;
}

QString ffmetadataEscape(const QString& text)
{
    QString out;
    for (const QChar c : text) {
        if (c == u'=' || c == u';' || c == u'#' || c == u'\\' || c == u'\n')
            out += u'\\';
        if (c != u'\r')
            out += c;
    }
    return out;
}

int mediaTypeNumber(const QString& name)
{
    if (name == QStringLiteral("music"))
        return 1;
    if (name == QStringLiteral("podcast"))
        return 21;
    return 2;
}

QString listLine(std::int64_t ms, const QString& title)
{
    const std::int64_t h = ms / 3600000;
    return QStringLiteral("%1:%2:%3.%4 ")
               .arg(h, 2, 10, QLatin1Char('0'))
               .arg((ms / 60000) % 60, 2, 10, QLatin1Char('0'))
               .arg((ms / 1000) % 60, 2, 10, QLatin1Char('0'))
               .arg(ms % 1000, 3, 10, QLatin1Char('0'))
        + QString(title).replace(u'\r', u' ').replace(u'\n', u' ').trimmed();
}

// Whether path lies inside FolivoxWork (our own temporary files).
bool isInsideWorkRoot(const QString& path)
{
    const QString root = QFileInfo(AppPaths::workRoot()).canonicalFilePath();
    const QString file = QFileInfo(path).canonicalFilePath();
    return !root.isEmpty() && !file.isEmpty() && file.startsWith(root + u'/');
}

std::int64_t startMs(const ChapterInfo& c)
{
    return std::max<std::int64_t>(0, std::llround(c.startTime * 1000.0));
}

// The container work after the tools, on the working copy.
void finishContainer(const QString& working, const QString& bookName, const DefaultMetadataWritingService::WriteOptions& w,
                     bool chaptersWritten)
{
    if (chaptersWritten)
        MP4ChapterTrackLanguagePatcher::stampChapterTrackNonFatal(working, LanguageCodes::chapterTrackLanguage(w.language));
    MP4StsdChannelPatcher::applyLogged(working);
    const auto languageText = nonBlank(w.language);
    const QString iso = languageText ? LanguageCodes::toISO6392(*languageText).value_or(QString()) : QString();
    if (languageText || !w.freeformTags.isEmpty())
        MP4LanguageAtomWriter::write(working, languageText, iso, w.freeformTags);
    if (w.markAsAudiobook) {
        try {
            FtypPatcher::patch(working);
        } catch (const Error& e) {
            log(QStringLiteral("ftyp patch FAILED (non-fatal): ") + e.description());
        }
    }
    try {
        const FastStartRelocator::Outcome outcome = FastStartRelocator::relocate(working);
        if (outcome.kind == FastStartRelocator::Outcome::Kind::relocated)
            log(QStringLiteral("moov moved ahead of mdat for ") + bookName);
    } catch (const Error& e) {
        Log::write(QStringLiteral("[FastStart] relocation FAILED for '") + bookName + QStringLiteral("': ") + e.description());
    }
}
} // namespace

DefaultMetadataWritingService::DefaultMetadataWritingService() : DefaultMetadataWritingService(Options{}) {}

DefaultMetadataWritingService::DefaultMetadataWritingService(Options options) : options_(std::move(options)) {}

QByteArray DefaultMetadataWritingService::chapterListText(const QList<ChapterInfo>& chapters)
{
    QByteArray out;
    for (const ChapterInfo& c : chapters)
        out += listLine(startMs(c), c.title).toUtf8() + '\n';
    return out;
}

bool DefaultMetadataWritingService::isLargeBook(const QString& file, std::uint64_t limit)
{
    try {
        const MP4File f(file, MP4File::Access::read);
        for (const MP4BoxHeader& h : MP4BoxHeader::listTopLevel(f, f.size()))
            if (h.is(fc("moov")))
                return h.size > limit;
    } catch (const Error&) {
    }
    return false;
}

std::optional<QString> DefaultMetadataWritingService::unreadableReason(const QString& file)
{
    try {
        std::uint64_t size = 0;
        {
            const MP4File f(file, MP4File::Access::read);
            size = f.size();
            const QList<MP4BoxHeader> boxes = MP4BoxHeader::listTopLevel(f, size);
            if (boxes.isEmpty() || boxes.last().end() != size)
                return QStringLiteral("the top-level boxes do not reach the end of the file");
        }
        const MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(file).data);
        if (!moov.isContainer || !moov.child(fc("mvhd")))
            return QStringLiteral("moov does not parse");
        const MP4BoxTree::Node* stbl = soundTable(moov);
        if (!stbl || !stbl->isContainer)
            return QStringLiteral("no sound track with sample tables");
        for (std::uint32_t t : {fc("stsd"), fc("stts"), fc("stsc")})
            if (!stbl->child(t))
                return QStringLiteral("the sound track lacks ") + MP4Bytes::typeText(t);
        if (!stbl->child(fc("stsz")) && !stbl->child(fc("stz2")))
            return QStringLiteral("the sound track lacks stsz");
        const MP4BoxTree::Node* stco = stbl->child(fc("stco"));
        const MP4BoxTree::Node* co64 = stbl->child(fc("co64"));
        if (!stco && !co64)
            return QStringLiteral("the sound track has no chunk offsets");
        const MP4BoxTree::Node* table = stco ? stco : co64;
        const int width = stco ? 4 : 8;
        if (table->isContainer || table->payload.size() < 8)
            return QStringLiteral("the chunk offset table is damaged");
        const std::uint32_t count = MP4Bytes::be32(table->payload.constData() + 4);
        if (8 + qsizetype(count) * width > table->payload.size())
            return QStringLiteral("the chunk offset table is truncated");
        for (std::uint32_t i = 0; i < count; ++i) {
            const char* p = table->payload.constData() + 8 + qsizetype(i) * width;
            const std::uint64_t offset = width == 4 ? MP4Bytes::be32(p) : MP4Bytes::be64(p);
            if (offset >= size)
                return QStringLiteral("a chunk lies outside the file");
        }
    } catch (const Error& e) {
        return e.description();
    }
    return std::nullopt;
}

void DefaultMetadataWritingService::finishBook(const BookFinishRequest& request, const CancellationToken& token)
{
    const QFileInfo info(request.file);
    if (!info.isFile())
        throw ExportError::underlying(QStringLiteral("The output file \"%1\" does not exist").arg(info.fileName()),
                                      QStringLiteral("MetadataWriting"));
    throwIfCancelled(token);
    const QString ext = info.suffix().toLower();
    if (ext == QStringLiteral("mp3")) {
        Mp3TagWriter::write(request.file, request.metadata, request.coverImage, request.placement);
        return;
    }
    if (ext != QStringLiteral("m4b") && ext != QStringLiteral("m4a"))
        throw ExportError::underlying(
            QStringLiteral("Metadata can't be written into \"%1\": not an M4B, M4A or MP3 file").arg(info.fileName()),
            QStringLiteral("MetadataWriting"));

    const QList<MetadataItem> items = MetadataItemBuilder::items(request.metadata, request.placement);
    WriteOptions w;
    w.freshOutput = request.freshOutput;
    w.editInPlace = true;
    w.finishContainer = true;
    w.language = request.metadata.language;
    w.freeformTags = MetadataItemBuilder::freeformTags(items);
    w.markAsAudiobook = ext == QStringLiteral("m4b");

    if (isLargeBook(request.file, options_.largeBookMoovBytes)) {
        writeLargeBook(request.file, items, request.coverImage, request.chapters, token, w);
        return;
    }
    run(request.chapters.isEmpty() ? Operation::metadata : Operation::both, request.file, items, request.coverImage,
        request.chapters, token, w);
}

void DefaultMetadataWritingService::writeChapters(const QString& file, const QList<ChapterInfo>& chapters,
                                                  const CancellationToken& token, const WriteOptions& options)
{
    if (chapters.isEmpty()) {
        log(QStringLiteral("skipping writeChapters: empty"));
        return;
    }
    run(Operation::chapters, file, {}, {}, chapters, token, options);
}

void DefaultMetadataWritingService::writeMetadata(const QString& file, const QList<MetadataItem>& items,
                                                  const QByteArray& cover, const CancellationToken& token,
                                                  const WriteOptions& options)
{
    if (items.isEmpty() && cover.isEmpty()) {
        log(QStringLiteral("skipping writeMetadata: empty"));
        return;
    }
    run(Operation::metadata, file, items, cover, {}, token, options);
}

void DefaultMetadataWritingService::writeMetadataAndChapters(const QString& file, const QList<MetadataItem>& items,
                                                             const QByteArray& cover, const QList<ChapterInfo>& chapters,
                                                             const CancellationToken& token, const WriteOptions& options)
{
    if (chapters.isEmpty()) {
        writeMetadata(file, items, cover, token, options);
        return;
    }
    if (items.isEmpty() && cover.isEmpty()) {
        writeChapters(file, chapters, token, options);
        return;
    }
    run(Operation::both, file, items, cover, chapters, token, options);
}

void DefaultMetadataWritingService::run(Operation operation, const QString& file, const QList<MetadataItem>& items,
                                        const QByteArray& cover, const QList<ChapterInfo>& chapters,
                                        const CancellationToken& token, const WriteOptions& w)
{
    const QString name = QFileInfo(file).fileName();
    const QStringList tagArguments = MetadataItemBuilder::mp4tagsArguments(items);
    const MP4TagsService tags(options_.toolsDirectories);
    const MP4ArtService art(options_.toolsDirectories);
    ToolRunner::Options runnerOptions;
    runnerOptions.toolsDirectories = options_.toolsDirectories;
    const ToolRunner runner(runnerOptions);
    const double timeout = options_.toolTimeoutSeconds;

    // Every tool is found before anything is copied: a missing one changes nothing.
    if (!tagArguments.isEmpty())
        tags.binaryPath();
    if (!cover.isEmpty())
        art.binaryPath();
    QString chapsBinary;
    if (!chapters.isEmpty()) {
        const BinaryResolver resolver = options_.toolsDirectories ? BinaryResolver(*options_.toolsDirectories) : BinaryResolver();
        const auto found = resolver.find(QStringLiteral("mp4chaps"));
        if (!found)
            throw ToolLaunchError::notFound(QStringLiteral("mp4chaps"));
        chapsBinary = *found;
    }

    switch (operation) {
    case Operation::chapters:
        log(QStringLiteral("writeChapters: %1 chapters for %2").arg(chapters.size()).arg(name));
        break;
    case Operation::metadata:
        log(QStringLiteral("writeMetadata: %1 items for %2").arg(items.size()).arg(name));
        break;
    case Operation::both:
        log(QStringLiteral("writeMetadataAndChapters: %1 items + %2 chapters (single-copy)").arg(items.size()).arg(chapters.size()));
        break;
    }
    if (!chapsBinary.isEmpty())
        log(QStringLiteral("mp4chaps binary: ") + chapsBinary);
    throwIfCancelled(token);

    WorkDirectory work;
    const QString ext = QFileInfo(file).suffix().isEmpty() ? QStringLiteral("m4b") : QFileInfo(file).suffix().toLower();
    // A build's own output inside FolivoxWork is edited where it lies: the
    // build throws it away when anything fails, so a working copy would only
    // cost a full read and write of the book.
    const bool inPlace = w.editInPlace && !w.sessionBackup && isInsideWorkRoot(file);
    const QString working = inPlace ? file : work.filePath(QStringLiteral("book.") + ext);
    if (inPlace) {
        log(QStringLiteral("Editing build output in place (no working copy): ") + name);
    } else {
        QElapsedTimer t;
        t.start();
        const bool cloned = w.sessionBackup && QFileInfo(*w.sessionBackup).isFile();
        copyFile(cloned ? *w.sessionBackup : file, working);
        log(QStringLiteral("Copied M4B to temp in ") + secondsText(t)
            + (cloned ? QStringLiteral(" (cloned from session backup, book not re-read)") : QString()));
    }

    // The sample tables before mp4tags, to prove afterwards that it left the
    // audio alone.
    QByteArray signatureBefore;
    if (!tagArguments.isEmpty())
        signatureBefore = audioSignature(working);

    const auto runTags = [&]() {
        const ToolRunResult r = tags.write(working, tagArguments, {}, timeout, token);
        if (!r.success) {
            throwIfStoppedByRunner(r, token);
            log(QStringLiteral("mp4tags FAILED: exit=%1").arg(r.terminationStatus));
            throw onVolumeOf(MetadataWritingError::mp4tagsFailed(toolDetail(r)), working);
        }
        return r;
    };

    if (!tagArguments.isEmpty()) {
        log(QStringLiteral("mp4tags args: %1 items, hasCover=%2")
                .arg(items.size())
                .arg(cover.isEmpty() ? QStringLiteral("false") : QStringLiteral("true")));
        const ToolRunResult r = runTags();
        log(QStringLiteral("mp4tags OK in ") + secondsText(r.duration));
        // mp4tags can exit 0 and leave a file no player opens.
        const auto damage = unreadableReason(working);
        if (damage || (!signatureBefore.isEmpty() && audioSignature(working) != signatureBefore)) {
            log(QStringLiteral("mp4tags corrupted moov atom — triggering transcode retry for container normalization"));
            log(QStringLiteral("damage found: ") + damage.value_or(QStringLiteral("the audio sample tables changed")));
            throw ExportError::corruptedSourceRequiresTranscode(
                QStringLiteral("mp4v2 corrupted moov atom on exotic MP4 container (mp4tags exit=0 but file unreadable)"));
        }
    }
    throwIfCancelled(token);

    if (!cover.isEmpty()) {
        QByteArray coverBytes = cover;
        QString coverType = CoverImageProcessor::imageType(cover);
        if (coverType.isEmpty()) {
            const auto converted = CoverImageProcessor::process(cover, CoverSize::original, CoverQuality::original);
            if (!converted)
                throw MetadataWritingError::mp4artFailed(QStringLiteral("the cover is not an image"));
            coverBytes = converted->bytes;
            coverType = converted->type;
        }
        const QString coverPath = work.filePath(QStringLiteral("cover.") + coverType);
        writeBytes(coverPath, coverBytes);
        // mp4art edits only moov and appends the image: a snapshot of the
        // moov and what follows it is enough to undo a failed run.
        const MP4TailSnapshot backup = MP4TailSnapshot::take(working, work.path());
        log(QStringLiteral("pre-mp4art backup: %1 of %2 bytes saved").arg(backup.savedBytes()).arg(backup.originalLength()));

        if (w.freshOutput) {
            log(QStringLiteral("mp4art --remove: skipped (fresh export output has no pre-existing art)"));
        } else {
            const ToolRunResult r = art.remove(working, timeout, token);
            if (r.cancelled || token.isCancelled())
                throw ExportError::cancelled();
            log(QStringLiteral("mp4art --remove: exit=%1 in %2").arg(r.terminationStatus).arg(secondsText(r.duration)));
        }

        log(QStringLiteral("mp4art --add cover..."));
        const ToolRunResult r = art.add(working, coverPath, timeout, token);
        if (r.success) {
            log(QStringLiteral("mp4art --add OK in ") + secondsText(r.duration));
        } else {
            if (r.cancelled || token.isCancelled())
                throw ExportError::cancelled();
            log(QStringLiteral("mp4art --add FAILED: exit=%1 stderr=%2").arg(r.terminationStatus).arg(r.standardError.trimmed()));
            log(QStringLiteral("Restoring backup and falling back to FFmpeg for cover embedding..."));
            backup.restore(working);

            const QString output = work.filePath(QStringLiteral("ffmpeg-cover-")
                                                 + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".m4b"));
            for (const QString& p : {working, coverPath, output})
                if (PathValidator::problem(p))
                    throw ExportError::underlying(L10n::text("metadata.cover.invalidPath", "Invalid path for FFmpeg cover embedding"),
                                                  QStringLiteral("MetadataWriting"));
            FFmpegWrapper::Options ffOptions;
            ffOptions.ffmpegPath = options_.ffmpegPath;
            const FFmpegWrapper ffmpeg(ffOptions);
            const QStringList args{QStringLiteral("-i"), working, QStringLiteral("-i"), coverPath,
                                   QStringLiteral("-map"), QStringLiteral("0:a"), QStringLiteral("-map"), QStringLiteral("1:v"),
                                   QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-disposition:v:0"),
                                   QStringLiteral("attached_pic"), QStringLiteral("-f"), QStringLiteral("ipod"),
                                   QStringLiteral("-y"), output};
            const FFmpegResult fr = ffmpeg.run(args, std::nullopt, token);
            if (!fr.succeeded()) {
                throwIfCancelled(token);
                const QString detail = fr.error.value_or(QStringLiteral("exit %1").arg(fr.terminationStatus));
                log(QStringLiteral("FFmpeg cover fallback also FAILED: ") + detail);
                if (fr.indicatesOutOfSpace())
                    throw ExportError::outOfSpace();
                throw ExportError::underlying(L10n::text("metadata.cover.fallbackFailed", "FFmpeg cover fallback failed: ") + detail,
                                              QStringLiteral("MetadataWriting"));
            }
            QFile::remove(working);
            if (!QFile::rename(output, working))
                copyFile(output, working);
            log(QStringLiteral("FFmpeg cover fallback OK in ") + secondsText(fr.duration));
            // The remux keeps the iTunes items FFmpeg knows; write the tags
            // again so that none is lost.
            if (!tagArguments.isEmpty()) {
                const ToolRunResult again = runTags();
                log(QStringLiteral("mp4tags re-applied after FFmpeg cover fallback in ") + secondsText(again.duration));
            }
        }
    }
    throwIfCancelled(token);

    if (!chapters.isEmpty()) {
        // mp4chaps reads the list from beside the book it edits.
        const QFileInfo workingInfo(working);
        const QString listPath = workingInfo.absolutePath() + u'/' + workingInfo.completeBaseName() + QStringLiteral(".chapters.txt");
        struct RemoveOnExit {
            QString path;
            ~RemoveOnExit() { QFile::remove(path); }
        } listGuard{listPath};
        writeBytes(listPath, chapterListText(chapters));
        PathValidator::validate(working);
        struct Pass {
            const char* label;
            const char* flag;
        };
        for (const Pass& pass : {Pass{"QuickTime", "--chapter-qt"}, Pass{"Nero", "--chapter-nero"}}) {
            const ToolRunResult r = runner.runBinary(QStringLiteral("mp4chaps"), chapsBinary,
                                                     {QStringLiteral("--import"), QString::fromLatin1(pass.flag), working},
                                                     timeout, token);
            const QString label = QString::fromLatin1(pass.label);
            if (r.success) {
                log(QStringLiteral("mp4chaps (%1) OK in %2").arg(label, secondsText(r.duration)));
                continue;
            }
            throwIfStoppedByRunner(r, token);
            log(QStringLiteral("mp4chaps (%1) FAILED: exit=%2 stderr=%3").arg(label).arg(r.terminationStatus).arg(r.standardError.trimmed()));
            throw onVolumeOf(MetadataWritingError::mp4chapsFailed(label + QStringLiteral(": ") + toolDetail(r)), working);
        }
    }
    throwIfCancelled(token);

    if (w.finishContainer)
        finishContainer(working, name, w, !chapters.isEmpty());
    throwIfCancelled(token);

    if (inPlace)
        return;
    QElapsedTimer t;
    t.start();
    SafeFileReplace::replace(working, file);
    log((operation == Operation::chapters ? QStringLiteral("Chapters: copied back in ") : QStringLiteral("Metadata: copied back in "))
        + secondsText(t));
}

void DefaultMetadataWritingService::writeLargeBook(const QString& file, const QList<MetadataItem>& items,
                                                   const QByteArray& cover, const QList<ChapterInfo>& chapters,
                                                   const CancellationToken& token, const WriteOptions& w)
{
    log(QStringLiteral("large book — routing metadata write through memory-safe FFmpeg -c copy path"));
    FFmpegWrapper::Options ffOptions;
    ffOptions.ffmpegPath = options_.ffmpegPath;
    const FFmpegWrapper ffmpeg(ffOptions);
    throwIfCancelled(token);

    WorkDirectory work;
    const QString ext = QFileInfo(file).suffix().toLower();

    // Global tags and chapters for the ipod muxer.
    QString meta = QStringLiteral(";FFMETADATA1\n");
    for (const MetadataItem& item : items) {
        const QString key = MetadataItemBuilder::ffmpegKey(item.atom);
        if (key.isEmpty())
            continue;
        QString value = item.value;
        if (item.atom == QStringLiteral("stik"))
            value = QString::number(mediaTypeNumber(item.value));
        else if (item.total)
            value += u'/' + QString::number(*item.total);
        meta += key + u'=' + ffmetadataEscape(value) + u'\n';
    }
    const std::int64_t endMs = movieDurationMs(file).value_or(0);
    for (qsizetype i = 0; i < chapters.size(); ++i) {
        const std::int64_t start = startMs(chapters.at(i));
        const std::int64_t end = i + 1 < chapters.size() ? startMs(chapters.at(i + 1)) : std::max(endMs, start + 1);
        meta += QStringLiteral("[CHAPTER]\nTIMEBASE=1/1000\nSTART=%1\nEND=%2\ntitle=%3\n")
                    .arg(start)
                    .arg(end)
                    .arg(ffmetadataEscape(QString(chapters.at(i).title).replace(u'\n', u' ')));
    }
    const QString metaPath = work.filePath(QStringLiteral("metadata.txt"));
    writeBytes(metaPath, meta.toUtf8());

    QString coverPath;
    if (!cover.isEmpty()) {
        QString type = CoverImageProcessor::imageType(cover);
        QByteArray bytes = cover;
        if (type.isEmpty()) {
            const auto converted = CoverImageProcessor::process(cover, CoverSize::original, CoverQuality::original);
            if (converted) {
                bytes = converted->bytes;
                type = converted->type;
            }
        }
        if (!type.isEmpty()) {
            coverPath = work.filePath(QStringLiteral("cover.") + type);
            writeBytes(coverPath, bytes);
        }
    }

    const auto language = nonBlank(w.language);
    const QString iso = language ? LanguageCodes::toISO6392(*language).value_or(QStringLiteral("und")) : QStringLiteral("und");
    const QString output = work.filePath(QStringLiteral("ffmpeg-metadata-") + QUuid::createUuid().toString(QUuid::WithoutBraces)
                                         + u'.' + ext);
    QStringList args{QStringLiteral("-hide_banner"), QStringLiteral("-nostats"), QStringLiteral("-i"), file,
                     QStringLiteral("-i"), metaPath};
    if (!coverPath.isEmpty())
        args << QStringLiteral("-i") << coverPath;
    args << QStringLiteral("-map") << QStringLiteral("0:a:0");
    if (!coverPath.isEmpty())
        args << QStringLiteral("-map") << QStringLiteral("2:v");
    args << QStringLiteral("-map_metadata") << QStringLiteral("1") << QStringLiteral("-map_chapters") << QStringLiteral("1")
         << QStringLiteral("-c") << QStringLiteral("copy");
    if (!coverPath.isEmpty())
        args << QStringLiteral("-disposition:v:0") << QStringLiteral("attached_pic");
    args << QStringLiteral("-metadata:s:a:0") << (QStringLiteral("language=") + iso) << QStringLiteral("-f")
         << QStringLiteral("ipod") << QStringLiteral("-y") << output;

    log(QStringLiteral("ffmpeg cmd: ") + ffmpeg.ffmpegPath() + u' ' + args.join(u' '));
    const FFmpegResult r = ffmpeg.run(args, std::nullopt, token);
    if (!r.succeeded()) {
        throwIfCancelled(token);
        const QString status = QStringLiteral("exit %1").arg(r.terminationStatus);
        log(QStringLiteral("ffmpeg pass FAILED: %1 elapsed %2s stderrLen=%3 stdoutLen=0")
                .arg(status, secondsText(r.duration))
                .arg(r.stderr.size()));
        log(QStringLiteral("ffmpeg stderr: ") + r.stderr.right(2000));
        log(QStringLiteral("ffmpeg stdout: "));
        if (r.indicatesOutOfSpace())
            throw ExportError::outOfSpace();
        throw ExportError::underlying(QStringLiteral("FFmpeg metadata pass failed (%1): %2")
                                          .arg(status, r.error.value_or(r.stderr.trimmed())),
                                      QStringLiteral("MetadataWriting"));
    }
    log(QStringLiteral("ffmpeg pass OK in ") + secondsText(r.duration));
    throwIfCancelled(token);

    if (w.finishContainer)
        finishContainer(output, QFileInfo(file).fileName(), w, !chapters.isEmpty());
    throwIfCancelled(token);

    QElapsedTimer t;
    t.start();
    SafeFileReplace::replace(output, file);
    log(QStringLiteral("Metadata: copied back in ") + secondsText(t));
}

} // namespace folivox
