// Updating the title, the cover and 100 chapter titles of a 1 GB M4B in
// place (with its backup), against an `ffmpeg -c copy` remux of the same
// changes into a new file; and the parts: the backup alone (a reflink clone
// where the file system offers one, a plain copy otherwise) and the first
// mp4tags edit of a fast-started book, which rewrites the whole file once.
//
//   cmake --build build --target bench_inplace_update folivox mp4tags mp4art mp4chaps
//   build/bin/bench_inplace_update [--runs N]
//
// The book is made once (about 7 h of 320 kb/s AAC, moov ahead of mdat as
// the build leaves it) in $FOLIVOX_BENCH_DIR or <temp>/folivox-bench-inplace.
// Set FOLIVOX_BENCH_REFLINK_DIR to a folder on XFS/btrfs to time clones.

#include "BenchSupport.h"

#include "container/io/FileRangeCopier.h"
#include "inplace/InPlaceBackupStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <functional>
#include <vector>

using namespace folivox;
using namespace folivox::bench;

namespace {

bool ffmpeg(const QStringList& args)
{
    const Result r = run(QStringLiteral("ffmpeg"), QStringList{QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"),
                                                               QStringLiteral("error"), QStringLiteral("-y")} + args);
    if (r.exitCode != 0)
        std::fprintf(stderr, "ffmpeg failed: %s\n", r.err.constData());
    return r.exitCode == 0;
}

// The 1 GB book with 100 chapters, made once.
QString makeBook(const QString& dir)
{
    const QString book = dir + QStringLiteral("/book-1g.m4b");
    if (QFileInfo(book).size() > 1000000000)
        return book;
    std::fprintf(stderr, "making the 1 GB book in %s (once)...\n", qPrintable(dir));
    const QString seg = dir + QStringLiteral("/segment.m4a");
    if (!QFileInfo::exists(seg)
        && !ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                    QStringLiteral("anoisesrc=color=pink:sample_rate=48000:duration=1200"), QStringLiteral("-ac"),
                    QStringLiteral("2"), QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                    QStringLiteral("320k"), seg}))
        return {};
    // As many copies of the segment as make the book pass 1 GB.
    const int copies = int(1050000000LL / std::max<qint64>(1, QFileInfo(seg).size())) + 1;
    QString list;
    for (int i = 0; i < copies; ++i)
        list += QStringLiteral("file '%1'\n").arg(seg);
    QFile l(dir + QStringLiteral("/list.txt"));
    l.open(QIODevice::WriteOnly);
    l.write(list.toUtf8());
    l.close();
    QString meta = QStringLiteral(";FFMETADATA1\ntitle=Old Title\nartist=Author\n");
    const qint64 total = qint64(copies) * 1200 * 1000;
    for (int i = 0; i < 100; ++i)
        meta += QStringLiteral("[CHAPTER]\nTIMEBASE=1/1000\nSTART=%1\nEND=%2\ntitle=Chapter %3\n")
                    .arg(total * i / 100)
                    .arg(total * (i + 1) / 100)
                    .arg(i + 1);
    QFile m(dir + QStringLiteral("/meta.txt"));
    m.open(QIODevice::WriteOnly);
    m.write(meta.toUtf8());
    m.close();
    if (!ffmpeg({QStringLiteral("-f"), QStringLiteral("concat"), QStringLiteral("-safe"), QStringLiteral("0"), QStringLiteral("-i"),
                 l.fileName(), QStringLiteral("-i"), m.fileName(), QStringLiteral("-map"), QStringLiteral("0:a"),
                 QStringLiteral("-map_metadata"), QStringLiteral("1"), QStringLiteral("-map_chapters"), QStringLiteral("1"),
                 QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-movflags"), QStringLiteral("+faststart"),
                 QStringLiteral("-f"), QStringLiteral("ipod"), book}))
        return {};
    return book;
}

double timeIt(const std::function<void()>& f)
{
    QElapsedTimer t;
    t.start();
    f();
    return double(t.nsecsElapsed()) / 1e9;
}

void syncDisks()
{
    run(QStringLiteral("sync"), {});
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    int runs = 3;
    const QStringList args = app.arguments();
    if (const auto i = args.indexOf(QStringLiteral("--runs")); i > 0 && i + 1 < args.size())
        runs = std::max(1, args.at(i + 1).toInt());
    const QString folivox = folivoxBinary();
    if (folivox.isEmpty())
        return 1;
    const QString benchDir = qEnvironmentVariable("FOLIVOX_BENCH_DIR", QDir::tempPath() + QStringLiteral("/folivox-bench-inplace"));
    QDir().mkpath(benchDir);
    const QString book = makeBook(benchDir);
    if (book.isEmpty())
        return 1;
    QTemporaryDir home(benchDir + QStringLiteral("/home-XXXXXX"));
    qputenv("FOLIVOX_HOME", home.path().toUtf8());
    const QString work = benchDir + QStringLiteral("/work");
    QDir(work).removeRecursively();
    QDir().mkpath(work);
    const QString target = work + QStringLiteral("/target.m4b");
    const QString cover = work + QStringLiteral("/cover.png");
    ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("testsrc=size=1000x1000:duration=1"),
            QStringLiteral("-frames:v"), QStringLiteral("1"), cover});
    QFile titles(work + QStringLiteral("/titles.txt"));
    titles.open(QIODevice::WriteOnly);
    for (int i = 0; i < 100; ++i)
        titles.write(QStringLiteral("Renamed chapter %1\n").arg(i + 1).toUtf8());
    titles.close();
    const auto fresh = [&] {
        QFile::remove(target);
        FileRangeCopier::copyFile(book, target, 0644);
        syncDisks();
    };
    std::printf("book: %.2f GB, 100 chapters, %d run(s) each, median seconds\n", double(QFileInfo(book).size()) / 1e9, runs);

    std::vector<double> update, firstTags, backupCopy, backupClone, remux;
    for (int r = 0; r < runs; ++r) {
        fresh();
        const Result u = run(folivox, {QStringLiteral("update"), target, QStringLiteral("--title"), QStringLiteral("New Title"),
                                       QStringLiteral("--cover"), cover, QStringLiteral("--chapter-titles"), titles.fileName(), QStringLiteral("-q")});
        if (u.exitCode != 0) {
            std::fprintf(stderr, "update failed: %s\n", u.err.constData());
            return 1;
        }
        update.push_back(u.seconds);
        QDir(home.path() + QStringLiteral("/InPlaceBackups")).removeRecursively();

        // The first tag edit of a fast-started book, alone.
        fresh();
        const QString mp4tags = QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("mp4tags"));
        firstTags.push_back(run(mp4tags, {QStringLiteral("-song"), QStringLiteral("New Title"), target}).seconds);

        // The backup alone, as a plain copy.
        const QString copy = work + QStringLiteral("/backup.bak");
        QFile::remove(copy);
        syncDisks();
        backupCopy.push_back(timeIt([&] { FileRangeCopier::copyFile(target, copy, 0600); syncDisks(); }));
        QFile::remove(copy);

        // And as a clone, where a folder on a cloning file system is given.
        const QString reflinkDir = qEnvironmentVariable("FOLIVOX_BENCH_REFLINK_DIR");
        if (!reflinkDir.isEmpty()) {
            const QString src = reflinkDir + QStringLiteral("/book.m4b");
            const QString dst = reflinkDir + QStringLiteral("/book.bak");
            if (!QFileInfo::exists(src))
                FileRangeCopier::copyFile(book, src, 0644);
            QFile::remove(dst);
            bool cloned = false;
            backupClone.push_back(timeIt([&] { cloned = InPlaceBackupStore::cloneOrCopy(src, dst); }));
            if (!cloned)
                std::fprintf(stderr, "%s does not clone: the figure is a copy\n", qPrintable(reflinkDir));
            QFile::remove(dst);
        }

        // The same changes remuxed into a new file.
        const QString out = work + QStringLiteral("/remux.m4b");
        QFile::remove(out);
        syncDisks();
        const Result rx = run(QStringLiteral("ffmpeg"),
                              {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-i"), target,
                               QStringLiteral("-i"), cover, QStringLiteral("-map"), QStringLiteral("0:a"), QStringLiteral("-map"),
                               QStringLiteral("1:v"), QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-disposition:v:0"),
                               QStringLiteral("attached_pic"), QStringLiteral("-metadata"), QStringLiteral("title=New Title"),
                               QStringLiteral("-f"), QStringLiteral("ipod"), QStringLiteral("-y"), out});
        if (rx.exitCode != 0)
            std::fprintf(stderr, "remux failed: %s\n", rx.err.constData());
        remux.push_back(rx.seconds + timeIt(syncDisks));
        QFile::remove(out);
    }
    QFile::remove(target);
    std::printf("folivox update (title, cover, 100 chapter titles, with backup): %.2f\n", median(update));
    std::printf("  backup alone, plain copy + sync:                            %.2f\n", median(backupCopy));
    if (!backupClone.empty())
        std::printf("  backup alone, reflink clone:                                %.3f\n", median(backupClone));
    std::printf("  update without the backup (difference):                     %.2f\n", median(update) - median(backupCopy));
    std::printf("  first mp4tags edit of the fast-started book (whole-file copy): %.2f\n", median(firstTags));
    std::printf("ffmpeg -c copy remux of the same changes to a new file:       %.2f\n", median(remux));
    return 0;
}
