#include "support/MediaReaders.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>

#include <gtest/gtest.h>

namespace folivox::test {

namespace {
QJsonObject parseObject(const QByteArray& out, const QString& what)
{
    const QJsonDocument doc = QJsonDocument::fromJson(out);
    if (doc.isObject())
        return doc.object();
    if (doc.isArray() && !doc.array().isEmpty())
        return doc.array().first().toObject();
    ADD_FAILURE() << what.toStdString() << " gave no JSON: " << out.left(500).toStdString();
    return {};
}

const char* kMutagenMp4 = R"PY(
import json, sys
from mutagen.mp4 import MP4
f = MP4(sys.argv[1])
out = {}
for k, v in (f.tags or {}).items():
    if k == 'covr':
        out[k] = [{'format': int(c.imageformat), 'size': len(c)} for c in v]
    elif k in ('trkn', 'disk'):
        out[k] = [list(x) for x in v]
    elif k.startswith('----'):
        out[k] = [bytes(x).decode('utf-8') for x in v]
    else:
        out[k] = [x if isinstance(x, (str, int, bool)) else str(x) for x in v]
out['_chapters'] = [[c.start, c.title] for c in (f.chapters or [])]
print(json.dumps(out))
)PY";

const char* kMutagenId3 = R"PY(
import json, sys
from mutagen.id3 import ID3
t = ID3(sys.argv[1])
out = {'_version': list(t.version)}
for key, frame in t.items():
    if key.startswith('APIC'):
        out['APIC'] = {'mime': frame.mime, 'type': int(frame.type), 'size': len(frame.data)}
    elif hasattr(frame, 'text'):
        out[key] = [str(x) for x in frame.text]
print(json.dumps(out))
)PY";
} // namespace

MediaReaders::Run MediaReaders::run(const QString& program, const QStringList& args, int timeoutMs)
{
    QProcess p;
    p.setProgram(program);
    p.setArguments(args);
    p.setStandardInputFile(QProcess::nullDevice());
    p.start();
    Run r;
    if (!p.waitForStarted(10000))
        return r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished(5000);
        return r;
    }
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

QString MediaReaders::python()
{
    if (QFileInfo(QStringLiteral("/usr/bin/python3")).isExecutable())
        return QStringLiteral("/usr/bin/python3");
    return QStringLiteral("python3");
}

QJsonObject MediaReaders::ffprobe(const QString& path)
{
    const Run r = run(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_format"),
                                                  QStringLiteral("-show_streams"), QStringLiteral("-show_chapters"),
                                                  QStringLiteral("-of"), QStringLiteral("json"), path});
    if (r.exitCode != 0) {
        ADD_FAILURE() << "ffprobe failed on " << path.toStdString() << ": " << r.err.toStdString();
        return {};
    }
    return parseObject(r.out, QStringLiteral("ffprobe"));
}

QJsonObject MediaReaders::exiftool(const QString& path)
{
    const Run r = run(QStringLiteral("exiftool"), {QStringLiteral("-j"), QStringLiteral("-a"), QStringLiteral("-G1"),
                                                   QStringLiteral("-ee"), path});
    if (r.exitCode != 0) {
        ADD_FAILURE() << "exiftool failed on " << path.toStdString() << ": " << r.err.toStdString();
        return {};
    }
    return parseObject(r.out, QStringLiteral("exiftool"));
}

QJsonObject MediaReaders::mutagenMp4(const QString& path)
{
    const Run r = run(python(), {QStringLiteral("-c"), QString::fromLatin1(kMutagenMp4), path});
    if (r.exitCode != 0) {
        ADD_FAILURE() << "mutagen (MP4) failed on " << path.toStdString() << ": " << r.err.toStdString();
        return {};
    }
    return parseObject(r.out, QStringLiteral("mutagen"));
}

QJsonObject MediaReaders::mutagenId3(const QString& path)
{
    const Run r = run(python(), {QStringLiteral("-c"), QString::fromLatin1(kMutagenId3), path});
    if (r.exitCode != 0) {
        ADD_FAILURE() << "mutagen (ID3) failed on " << path.toStdString() << ": " << r.err.toStdString();
        return {};
    }
    return parseObject(r.out, QStringLiteral("mutagen"));
}

} // namespace folivox::test
