#pragma once

// Audio files for the import tests, made with ffmpeg in the test's own
// temporary folder.

#include "support/Fixtures.h"

#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <gtest/gtest.h>

namespace folivox::test {

struct AudioFixtures {
    // An MP3 with ID3v2.3 tags.
    static bool taggedMp3(const QString& path, double seconds, const QStringList& tags, int channels = 2,
                          const QString& bitrate = QStringLiteral("96k"))
    {
        QStringList args{QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), bitrate,
                         QStringLiteral("-id3v2_version"), QStringLiteral("3")};
        for (const QString& t : tags)
            args << QStringLiteral("-metadata") << t;
        return Fixtures::tone(path, seconds, args, 44100, channels);
    }

    // An AAC-LC M4B (ipod muxer) at the given bitrate, optionally with
    // chapters (start seconds and titles) and a PNG cover.
    static bool m4b(const QString& path, double seconds, const QString& bitrate,
                    const QList<std::pair<double, QString>>& chapters = {}, bool cover = false,
                    const QStringList& tags = {}, int sampleRate = 44100, int channels = 2)
    {
        const QString dir = QFileInfo(path).absolutePath();
        const QString plain = dir + QStringLiteral("/.plain-") + QFileInfo(path).completeBaseName() + ".m4a";
        if (!Fixtures::tone(plain, seconds, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"), bitrate},
                            sampleRate, channels))
            return false;
        QStringList args{QStringLiteral("-i"), plain};
        int inputs = 1;
        int metaInput = -1;
        int coverInput = -1;
        if (!chapters.isEmpty()) {
            QString meta = QStringLiteral(";FFMETADATA1\n");
            for (int i = 0; i < chapters.size(); ++i) {
                const qint64 start = qRound64(chapters[i].first * 1000);
                const qint64 end = i + 1 < chapters.size() ? qRound64(chapters[i + 1].first * 1000)
                                                           : qRound64(seconds * 1000);
                meta += QStringLiteral("[CHAPTER]\nTIMEBASE=1/1000\nSTART=%1\nEND=%2\ntitle=%3\n")
                            .arg(start)
                            .arg(end)
                            .arg(chapters[i].second);
            }
            const QString metaPath = dir + QStringLiteral("/.meta-") + QFileInfo(path).completeBaseName() + ".txt";
            if (!Fixtures::writeFile(metaPath, meta.toUtf8()))
                return false;
            args << QStringLiteral("-i") << metaPath;
            metaInput = inputs++;
        }
        if (cover) {
            const QString coverPath = dir + QStringLiteral("/.cover-") + QFileInfo(path).completeBaseName() + ".png";
            if (!Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                   QStringLiteral("color=c=red:s=64x64:d=1"), QStringLiteral("-frames:v"),
                                   QStringLiteral("1"), coverPath}))
                return false;
            args << QStringLiteral("-i") << coverPath;
            coverInput = inputs++;
        }
        args << QStringLiteral("-map") << QStringLiteral("0:a");
        if (coverInput >= 0)
            args << QStringLiteral("-map") << QString::number(coverInput);
        if (metaInput >= 0)
            args << QStringLiteral("-map_metadata") << QString::number(metaInput) << QStringLiteral("-map_chapters")
                 << QString::number(metaInput);
        args << QStringLiteral("-c:a") << QStringLiteral("copy");
        if (coverInput >= 0)
            args << QStringLiteral("-c:v") << QStringLiteral("png") << QStringLiteral("-disposition:v")
                 << QStringLiteral("attached_pic");
        for (const QString& t : tags)
            args << QStringLiteral("-metadata") << t;
        args << QStringLiteral("-f") << QStringLiteral("ipod") << path;
        return Fixtures::ffmpeg(args);
    }

    static QUrl url(const QString& path) { return QUrl::fromLocalFile(path); }
};

} // namespace folivox::test
