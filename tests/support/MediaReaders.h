#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace folivox::test {

// Independent readers of finished media files, run as child processes:
// ffprobe, exiftool and mutagen (Python). Each returns an empty object and
// fails the current test (ADD_FAILURE) when the reader cannot run.
class MediaReaders {
public:
    struct Run {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };
    // Runs a program with arguments, stdin from the null device.
    static Run run(const QString& program, const QStringList& args, int timeoutMs = 120000);

    // "ffprobe -show_format -show_streams -show_chapters -of json".
    static QJsonObject ffprobe(const QString& path);
    // "exiftool -j -a -G1 -ee" (the first object of its array).
    static QJsonObject exiftool(const QString& path);
    // mutagen.mp4.MP4: every tag (covr as [{format, size}], trkn/disk as
    // pairs, freeform items as text) and "_chapters" as [[start, title]...]
    // from the Nero chapters mutagen reads.
    static QJsonObject mutagenMp4(const QString& path);
    // mutagen.id3.ID3: "_version" (e.g. [2,4,0]) and each frame by its
    // HashKey ("TIT2", "TXXX:NARRATOR", "APIC:") with its text, or for APIC
    // {mime, type, size}.
    static QJsonObject mutagenId3(const QString& path);

    // The Python that has mutagen (Debian's /usr/bin/python3 first).
    static QString python();
};

} // namespace folivox::test
