#pragma once

#include "export/metadata/DefaultMetadataWritingService.h"
#include "inplace/InPlaceTagWriter.h"
#include "inplace/InPlaceUpdateService.h"

namespace folivox {

// The update, in an order that keeps every file recoverable:
//   1. every target is checked, then backed up (InPlaceBackupStore); a
//      failed backup throws backupFailed before anything is written;
//   2. each file is edited as a working copy in FolivoxWork cloned from its
//      backup: M4B/M4A through the mp4 tools and the container patches of
//      the build (DefaultMetadataWritingService), falling back to an
//      `ffmpeg -c copy` remux when the tools fail; MP3, FLAC, Ogg Vorbis and
//      AIFF through TagLib (InPlaceTagWriter);
//   3. the copy replaces the file through SafeFileReplace, and the size on
//      disk is checked against the copy's: a mismatch puts the backup back
//      and throws writeVerificationFailed.
// Per-chapter files are done one by one; a cancel is honoured between files.
class DefaultInPlaceUpdateService : public InPlaceUpdateService {
public:
    DefaultInPlaceUpdateService();
    explicit DefaultInPlaceUpdateService(DefaultMetadataWritingService::Options options);

    QString updateMetadata(const BookMetadata& metadata, const QList<ChapterInfo>& chapters, const InPlaceUpdateMode& mode,
                           const CancellationToken& token, const InPlaceProgress& progress,
                           const InPlaceUpdateOptions& options = {}) override;

    // Cover file names looked for beside a book, in order.
    static QStringList externalCoverNames();

private:
    struct FileJob {
        QString target;
        QString backup;
        InPlaceSourceFormat format;
        InPlaceTagWriter::Change change;
        QList<ChapterInfo> chapters;
    };
    void writeFile(const FileJob& job, const CancellationToken& token, const InPlaceProgress& progress, double base,
                   double share);
    void writeMP4(const QString& working, const QString& workDir, const FileJob& job, const CancellationToken& token,
                  const InPlaceProgress& progress, double base, double share);
    void writeM4BMetadataViaRemuxFallback(const QString& input, const QString& output, const FileJob& job,
                                          const CancellationToken& token);
    void updateExternalCover(const QString& bookFile, const QByteArray& cover, const QString& session);

    DefaultMetadataWritingService::Options options_;
};

} // namespace folivox
