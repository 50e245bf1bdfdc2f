#pragma once

#include "container/mp4/MP4LanguageAtomWriter.h"
#include "container/mp4/MP4MoovReader.h"
#include "core/chapters/ChapterInfo.h"
#include "export/metadata/MetadataItem.h"
#include "export/metadata/MetadataWritingService.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>

namespace folivox {

// Writes tags, the cover and chapters into MP4 books with the mp4tags,
// mp4art and mp4chaps tools, and tags MP3 files through Mp3TagWriter.
//
// A user's book is never edited: each operation copies it into a
// FolivoxWork folder, runs the tools on the copy and puts the copy back in
// one step (SafeFileReplace) once everything succeeded. Every tool needed is
// looked up before the copy is made, so a missing tool changes nothing. A
// build's own output that still lies inside FolivoxWork (finishBook) is
// edited where it is: the build discards it on failure anyway.
//
// Large books. The tools load the whole `moov` into memory, and refuse one
// above MP4MoovReader::maxMoovSize (50 MiB, which is about 85 hours of
// 44.1 kHz AAC: `moov` grows with the sample count, not with the file size).
// A book whose `moov` is larger than Options::largeBookMoovBytes (by default
// that same limit) is "large": its tags, chapters and cover go in through a
// single `ffmpeg -c copy` pass that reads them from an FFmetadata file, and
// the freeform items follow through MP4LanguageAtomWriter. A 1 GB book with
// an ordinary `moov` is not large: the tools edit it in milliseconds.
class DefaultMetadataWritingService : public MetadataWritingService {
public:
    struct Options {
        // Where the tools are looked up (then PATH); by default
        // BinaryResolver's folders.
        std::optional<QStringList> toolsDirectories;
        // The ffmpeg binary for the fallbacks; by default BinaryResolver's.
        std::optional<QString> ffmpegPath;
        // The limit of one tool run.
        double toolTimeoutSeconds = 600;
        // A book whose moov is larger than this skips the tools.
        std::uint64_t largeBookMoovBytes = MP4MoovReader::maxMoovSize;
    };

    // What happens around the tools.
    struct WriteOptions {
        // A file this build has just written: `mp4art --remove` is skipped.
        bool freshOutput = false;
        // A backup of the book made earlier in the same update: the working
        // copy is cloned from it instead of re-reading the book.
        std::optional<QString> sessionBackup;
        // The file is a build's output: when it lies inside FolivoxWork it
        // is edited directly, without a working copy (finishBook sets this).
        bool editInPlace = false;
        // After the tools: chapter-track language, channel count, language
        // atoms and freeform items, then the "M4B " brand (markAsAudiobook)
        // and moov ahead of mdat.
        bool finishContainer = false;
        std::optional<QString> language;
        QList<MP4LanguageAtomWriter::FreeformTag> freeformTags;
        bool markAsAudiobook = false;
    };

    DefaultMetadataWritingService();
    explicit DefaultMetadataWritingService(Options options);

    // Dispatches by extension: .m4b and .m4a go through the tools (or the
    // large-book pass) and are finished; .mp3 goes to Mp3TagWriter.
    void finishBook(const BookFinishRequest& request, const CancellationToken& token) override;

    // The chapters alone: mp4chaps for the QuickTime track, then for Nero.
    void writeChapters(const QString& file, const QList<ChapterInfo>& chapters, const CancellationToken& token,
                       const WriteOptions& options);
    // The tag items (mp4tags) and the cover (mp4art, with the ffmpeg fallback).
    void writeMetadata(const QString& file, const QList<MetadataItem>& items, const QByteArray& cover,
                       const CancellationToken& token, const WriteOptions& options);
    // Both, on one working copy.
    void writeMetadataAndChapters(const QString& file, const QList<MetadataItem>& items, const QByteArray& cover,
                                  const QList<ChapterInfo>& chapters, const CancellationToken& token,
                                  const WriteOptions& options);

    // Whether a book takes the large-book pass: its moov is larger than limit.
    static bool isLargeBook(const QString& file, std::uint64_t limit);

    // Why a file would not play, or nothing when its structure is sound:
    // the top-level boxes reach the end of the file, `moov` loads and
    // parses, a sound track has complete sample tables and every chunk lies
    // inside the file.
    static std::optional<QString> unreadableReason(const QString& file);

    // The chapter list handed to mp4chaps: "HH:MM:SS.mmm Title" a line.
    static QByteArray chapterListText(const QList<ChapterInfo>& chapters);

private:
    enum class Operation { chapters, metadata, both };

    void run(Operation operation, const QString& file, const QList<MetadataItem>& items, const QByteArray& cover,
             const QList<ChapterInfo>& chapters, const CancellationToken& token, const WriteOptions& options);
    void writeLargeBook(const QString& file, const QList<MetadataItem>& items, const QByteArray& cover,
                        const QList<ChapterInfo>& chapters, const CancellationToken& token, const WriteOptions& options);

    Options options_;
};

} // namespace folivox
