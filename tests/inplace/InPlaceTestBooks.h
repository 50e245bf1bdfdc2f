#pragma once

#include "support/Fixtures.h"
#include "support/MediaReaders.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace folivox::test {

// Real books for the in-place tests, made with ffmpeg in the test.
struct InPlaceTestBooks {
    // A 12 s M4B with three chapters (0, 4, 8 s) and a title and author.
    static bool m4b(const QString& path, const QString& dir)
    {
        const QString meta = dir + QStringLiteral("/book-meta.txt");
        Fixtures::writeFile(meta, ";FFMETADATA1\ntitle=Old Title\nartist=Old Author\n"
                                  "[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=4000\ntitle=One\n"
                                  "[CHAPTER]\nTIMEBASE=1/1000\nSTART=4000\nEND=8000\ntitle=Two\n"
                                  "[CHAPTER]\nTIMEBASE=1/1000\nSTART=8000\nEND=12000\ntitle=Three\n");
        return Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                 QStringLiteral("sine=frequency=330:duration=12"), QStringLiteral("-i"), meta,
                                 QStringLiteral("-map"), QStringLiteral("0:a"), QStringLiteral("-map_metadata"),
                                 QStringLiteral("1"), QStringLiteral("-map_chapters"), QStringLiteral("1"),
                                 QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                                 QStringLiteral("64k"), QStringLiteral("-f"), QStringLiteral("ipod"), path});
    }

    // A short tone in the format its extension names, titled "Old Title".
    static bool track(const QString& path, double seconds = 2.0, int frequency = 440)
    {
        QStringList codec;
        if (path.endsWith(QStringLiteral(".m4a")))
            codec = {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"), QStringLiteral("64k"),
                     QStringLiteral("-f"), QStringLiteral("ipod")};
        else if (path.endsWith(QStringLiteral(".mp3")))
            codec = {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k")};
        else if (path.endsWith(QStringLiteral(".ogg")))
            codec = {QStringLiteral("-c:a"), QStringLiteral("libvorbis")};
        else if (path.endsWith(QStringLiteral(".aiff")))
            codec = {QStringLiteral("-c:a"), QStringLiteral("pcm_s16be"), QStringLiteral("-write_id3v2"), QStringLiteral("1")};
        return Fixtures::ffmpeg(QStringList{QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                            QStringLiteral("sine=frequency=%1:duration=%2").arg(frequency).arg(seconds),
                                            QStringLiteral("-metadata"), QStringLiteral("title=Old Title")}
                                + codec + QStringList{path});
    }

    // A PNG cover of the given size.
    static QByteArray cover(const QString& dir, int size)
    {
        const QString p = dir + QStringLiteral("/cover-%1.png").arg(size);
        Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                          QStringLiteral("testsrc=size=%1x%1:duration=1").arg(size), QStringLiteral("-frames:v"),
                          QStringLiteral("1"), p});
        return Fixtures::readFile(p);
    }

    static QByteArray sha(const QString& path)
    {
        return QCryptographicHash::hash(Fixtures::readFile(path), QCryptographicHash::Sha256).toHex();
    }

    // ffprobe's format tags with lower-case keys.
    static QJsonObject tags(const QString& path)
    {
        const QJsonObject probe = MediaReaders::ffprobe(path);
        QJsonObject out;
        // Ogg keeps its comments on the audio stream.
        QList<QJsonObject> sources{probe.value(QStringLiteral("format")).toObject().value(QStringLiteral("tags")).toObject()};
        for (const QJsonValue& s : probe.value(QStringLiteral("streams")).toArray())
            if (s.toObject().value(QStringLiteral("codec_type")).toString() == QStringLiteral("audio"))
                sources << s.toObject().value(QStringLiteral("tags")).toObject();
        for (const QJsonObject& t : sources)
            for (auto it = t.begin(); it != t.end(); ++it)
                if (!out.contains(it.key().toLower()))
                    out.insert(it.key().toLower(), it.value());
        return out;
    }

    // The width of the attached picture, 0 without one.
    static int coverWidth(const QString& path)
    {
        for (const QJsonValue& s : MediaReaders::ffprobe(path).value(QStringLiteral("streams")).toArray()) {
            const QJsonObject o = s.toObject();
            if (o.value(QStringLiteral("disposition")).toObject().value(QStringLiteral("attached_pic")).toInt() == 1)
                return o.value(QStringLiteral("width")).toInt();
        }
        return 0;
    }

    static QStringList chapterTitles(const QString& path)
    {
        QStringList out;
        for (const QJsonValue& c : MediaReaders::ffprobe(path).value(QStringLiteral("chapters")).toArray())
            out << c.toObject().value(QStringLiteral("tags")).toObject().value(QStringLiteral("title")).toString();
        return out;
    }

    // mutagen's generic view: every tag key (lower case) to its first
    // value, and "_pictures" to the number of embedded pictures.
    static QJsonObject mutagenGeneric(const QString& path)
    {
        static const char* script = R"(
import json, sys, mutagen
f = mutagen.File(sys.argv[1])
out = {}
pics = 0
if f.tags is not None:
    for k in f.tags.keys():
        v = f.tags[k]
        if k.startswith('APIC'):
            pics += 1
            continue
        if hasattr(v, 'text'):
            v = v.text
        if isinstance(v, list):
            v = v[0] if v else ''
        out[str(k).lower()] = str(v)
    if 'metadata_block_picture' in out:
        pics += 1
if hasattr(f, 'pictures'):
    pics += len(f.pictures)
out['_pictures'] = pics
print(json.dumps(out))
)";
        const MediaReaders::Run r = MediaReaders::run(MediaReaders::python(), {QStringLiteral("-c"), QString::fromLatin1(script), path});
        return QJsonDocument::fromJson(r.out).object();
    }
};

} // namespace folivox::test
