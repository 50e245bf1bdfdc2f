#pragma once

// Books made of real files for the engine's tests: tracks whose cached format
// matches the file on disk (so the freshness pass trusts them), bookmarks,
// a metadata writer that records what it was asked, and helpers around a
// build.

#include "core/book/Bookmark.h"
#include "core/book/Track.h"
#include "export/engine/ExportContext.h"
#include "export/metadata/MetadataWritingService.h"
#include "platform/AppPaths.h"
#include "platform/Error.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <mutex>
#include <optional>
#include <vector>

#include <unistd.h>

namespace folivox::test {

// A track for a file that exists, with its format as the fixtures made it and
// the file's size and modification date as they are now.
Track realTrack(const QString& path, const QString& codec, int sampleRate, int channels, std::optional<int> bitrate,
                double duration);

// One chapter per track, each taking its whole file; titles "Chapter N".
std::vector<Bookmark> chapterPerTrack(const std::vector<Track>& tracks);
Bookmark bookmark(const QString& title, std::vector<Track> tracks, double startOffset, double duration);

// MP3 and AAC tones made by ffmpeg, with the track that describes them. The
// duration is the decoded one.
Track mp3Tone(const QString& path, double seconds, int frequency = 440, int channels = 1, int kbps = 64);
Track aacTone(const QString& path, double seconds, int frequency = 440, int channels = 1, int kbps = 64);
Track silenceMp3(const QString& path, double seconds, int channels = 1, int kbps = 64);

// Records every request; does not touch the file unless told to fail.
class RecordingMetadataService : public MetadataWritingService {
public:
    void finishBook(const BookFinishRequest& request, const CancellationToken& token) override;

    std::vector<BookFinishRequest> requests() const;
    // The next call throws this text (once).
    void failNextWith(const QString& text);

private:
    mutable std::mutex mutex_;
    std::vector<BookFinishRequest> requests_;
    std::optional<QString> failure_;
};

// Entries of the work root (<temp>/FolivoxWork). Other test programs may be
// working there at the same time; to see that a build left nothing behind,
// check the folders it logged (workFoldersLogged) instead.
QStringList workRootEntries();
// The work folders a build logged ("Work folder: <path>") that still exist.
QStringList leftoverWorkFolders(const QStringList& logLines);

// Makes a folder that refuses new entries even for root (chattr +i), or for
// others a folder without write permission. False when neither can be done.
bool makeFolderRefuseNewEntries(const QString& path);
void allowNewEntries(const QString& path);

// Silences ("silence_start"/"silence_end" pairs) that ffmpeg's silencedetect
// finds in a file's audio.
struct Silence {
    double start = 0;
    double end = 0;
};
std::vector<Silence> detectSilences(const QString& path, double noiseDb = -50, double minimumSeconds = 0.3);

// Number of audio packets of a file, counted by ffprobe.
int audioPacketCount(const QString& path);

// ---- definitions
inline Track realTrack(const QString& path, const QString& codec, int sampleRate, int channels,
                       std::optional<int> bitrate, double duration)
{
    const QFileInfo info(path);
    Track t;
    t.url = QUrl::fromLocalFile(info.absoluteFilePath());
    t.title = info.completeBaseName();
    t.duration = duration;
    t.cachedCodec = codec;
    t.cachedBitrate = bitrate;
    t.cachedSampleRate = sampleRate;
    t.cachedChannels = channels;
    t.cachedFileSize = static_cast<quint64>(info.size());
    t.cachedFileModificationDate = info.lastModified().toUTC();
    return t;
}

inline Bookmark bookmark(const QString& title, std::vector<Track> tracks, double startOffset, double duration)
{
    Bookmark b;
    b.title = title;
    b.tracks = std::move(tracks);
    b.startOffset = startOffset;
    b.duration = duration;
    return b;
}

inline std::vector<Bookmark> chapterPerTrack(const std::vector<Track>& tracks)
{
    std::vector<Bookmark> out;
    int n = 0;
    for (const Track& t : tracks)
        out.push_back(bookmark(QStringLiteral("Chapter %1").arg(++n), {t}, 0.0, t.duration));
    return out;
}

inline Track mp3Tone(const QString& path, double seconds, int frequency, int channels, int kbps)
{
    Fixtures::tone(path, seconds, {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"),
                                   QStringLiteral("%1k").arg(kbps)},
                   44100, channels, frequency);
    return realTrack(path, QStringLiteral("mp3"), 44100, channels, kbps * 1000, Fixtures::decodedDuration(path));
}

inline Track aacTone(const QString& path, double seconds, int frequency, int channels, int kbps)
{
    Fixtures::tone(path, seconds, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                                   QStringLiteral("%1k").arg(kbps), QStringLiteral("-f"), QStringLiteral("ipod")},
                   44100, channels, frequency);
    return realTrack(path, QStringLiteral("aac-lc"), 44100, channels, kbps * 1000, Fixtures::decodedDuration(path));
}

inline Track silenceMp3(const QString& path, double seconds, int channels, int kbps)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                      QStringLiteral("anullsrc=r=44100:cl=%1").arg(channels == 1 ? QStringLiteral("mono")
                                                                               : QStringLiteral("stereo")),
                      QStringLiteral("-t"), QString::number(seconds, 'f', 3), QStringLiteral("-c:a"),
                      QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("%1k").arg(kbps), path});
    return realTrack(path, QStringLiteral("mp3"), 44100, channels, kbps * 1000, Fixtures::decodedDuration(path));
}

inline void RecordingMetadataService::finishBook(const BookFinishRequest& request, const CancellationToken&)
{
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
    if (failure_) {
        const QString text = *failure_;
        failure_.reset();
        throw GenericError(text);
    }
}

inline std::vector<BookFinishRequest> RecordingMetadataService::requests() const
{
    std::lock_guard lock(mutex_);
    return requests_;
}

inline void RecordingMetadataService::failNextWith(const QString& text)
{
    std::lock_guard lock(mutex_);
    failure_ = text;
}

inline QStringList workRootEntries()
{
    return QDir(AppPaths::workRoot()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}

inline QStringList leftoverWorkFolders(const QStringList& logLines)
{
    QStringList left;
    const QString marker = QStringLiteral("Work folder: ");
    for (const QString& line : logLines) {
        const qsizetype at = line.indexOf(marker);
        if (at >= 0 && QFileInfo::exists(line.mid(at + marker.size())))
            left << line.mid(at + marker.size());
    }
    return left;
}

namespace detail {
inline int runQuiet(const QString& program, const QStringList& args, QByteArray* err = nullptr, QByteArray* out = nullptr)
{
    QProcess p;
    p.setStandardInputFile(QProcess::nullDevice());
    p.start(program, args);
    if (!p.waitForStarted(10000))
        return -1;
    p.waitForFinished(600000);
    if (err)
        *err = p.readAllStandardError();
    if (out)
        *out = p.readAllStandardOutput();
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

inline bool refusesNewEntries(const QString& path)
{
    QFile probe(QDir(path).filePath(QStringLiteral("probe")));
    if (probe.open(QIODevice::WriteOnly)) {
        probe.close();
        probe.remove();
        return false;
    }
    return true;
}
} // namespace detail

inline bool makeFolderRefuseNewEntries(const QString& path)
{
    QDir().mkpath(path);
    if (::geteuid() == 0)
        detail::runQuiet(QStringLiteral("chattr"), {QStringLiteral("+i"), path});
    else
        QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    return detail::refusesNewEntries(path);
}

inline void allowNewEntries(const QString& path)
{
    if (::geteuid() == 0)
        detail::runQuiet(QStringLiteral("chattr"), {QStringLiteral("-i"), path});
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

inline std::vector<Silence> detectSilences(const QString& path, double noiseDb, double minimumSeconds)
{
    QByteArray err;
    detail::runQuiet(QStringLiteral("ffmpeg"),
             {QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-i"), path,
              QStringLiteral("-af"),
              QStringLiteral("silencedetect=noise=%1dB:d=%2").arg(noiseDb).arg(minimumSeconds),
              QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")},
             &err);
    std::vector<Silence> out;
    static const QRegularExpression start(QStringLiteral("silence_start: (-?[0-9.]+)"));
    static const QRegularExpression end(QStringLiteral("silence_end: (-?[0-9.]+)"));
    for (const QString& line : QString::fromUtf8(err).split(u'\n')) {
        if (const auto m = start.match(line); m.hasMatch())
            out.push_back({m.captured(1).toDouble(), -1});
        else if (const auto e = end.match(line); e.hasMatch() && !out.empty())
            out.back().end = e.captured(1).toDouble();
    }
    return out;
}

inline int audioPacketCount(const QString& path)
{
    QByteArray out;
    detail::runQuiet(QStringLiteral("ffprobe"),
             {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-select_streams"), QStringLiteral("a:0"),
              QStringLiteral("-count_packets"), QStringLiteral("-show_entries"),
              QStringLiteral("stream=nb_read_packets"), QStringLiteral("-of"), QStringLiteral("csv=p=0"), path},
             nullptr, &out);
    return QString::fromUtf8(out).trimmed().toInt();
}

} // namespace folivox::test
