// `folivox library add` over a generated tree of 200 books: 150 folders of
// three MP3 files and 50 books on two disc folders ("CD1", "CD2") of two
// files each, under 20 author folders. Reports books per second for the
// first add (import of every file) and for adding the same tree again
// (every book skipped as already there).
//
//   cmake --build build --target bench_library_add folivox && build/bin/bench_library_add
//
// The audio is three short MP3 files made once by ffmpeg and hard-linked
// into every folder, so the figure is the cost of the library and import
// work, not of making audio.

#include "BenchSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <unistd.h>

namespace {

bool makeTone(const QString& path, int seconds)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                                       QStringLiteral("-y"), QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                       QStringLiteral("sine=frequency=440:sample_rate=22050:duration=%1").arg(seconds),
                                       QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-c:a"), QStringLiteral("libmp3lame"),
                                       QStringLiteral("-b:a"), QStringLiteral("32k"), path});
    return p.waitForFinished(60000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

bool place(const QString& source, const QString& target)
{
    QDir().mkpath(QFileInfo(target).absolutePath());
    return ::link(QFile::encodeName(source).constData(), QFile::encodeName(target).constData()) == 0
        || QFile::copy(source, target);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString folivox = folivox::bench::folivoxBinary();
    if (folivox.isEmpty())
        return 1;
    QTemporaryDir dir;
    const QString tree = dir.filePath(QStringLiteral("Audiobooks"));
    QStringList tones;
    for (int i = 0; i < 3; ++i) {
        tones << dir.filePath(QStringLiteral("tone%1.mp3").arg(i));
        if (!makeTone(tones.last(), 2 + i)) {
            std::fprintf(stderr, "ffmpeg could not make the audio\n");
            return 1;
        }
    }
    constexpr int kBooks = 200;
    for (int b = 0; b < kBooks; ++b) {
        const QString book = QStringLiteral("%1/Author %2/Book %3").arg(tree).arg(b % 20).arg(b);
        bool ok = true;
        if (b % 4 == 3) {
            ok = place(tones[0], book + "/CD1/01.mp3") && place(tones[1], book + "/CD1/02.mp3")
                && place(tones[2], book + "/CD2/01.mp3") && place(tones[0], book + "/CD2/02.mp3");
        } else {
            for (int t = 0; t < 3; ++t)
                ok = ok && place(tones[t], book + QStringLiteral("/%1 Chapter.mp3").arg(t + 1, 2, 10, QChar(u'0')));
        }
        if (!ok)
            return 1;
    }

    const QString library = dir.filePath(QStringLiteral("Library"));
    for (const char* round : {"first add", "adding again"}) {
        const folivox::bench::Result r = folivox::bench::run(
            folivox, {QStringLiteral("library"), QStringLiteral("add"), tree, QStringLiteral("--library"), library, QStringLiteral("-q")});
        if (r.exitCode != 0) {
            std::fprintf(stderr, "folivox library add failed: %s\n", r.err.constData());
            return 1;
        }
        std::printf("%s: %d books in %.2f s: %.1f books/s\n", round, kBooks, r.seconds, kBooks / r.seconds);
    }
    return 0;
}
