// `folivox library list` over a library of 5,000 books: the command reads
// index.json only, so its time should not grow with the books' own records.
//
//   cmake --build build --target bench_library_list folivox && build/bin/bench_library_list
//
// Prints the median wall time of the whole command (process start included)
// with and without --json, and of LibraryStore::load() in process. Target:
// under 100 ms for the command. While the command runs, every book.json is
// replaced by garbage: had the command opened one, it would have set it aside
// as book.json.corrupt, and the benchmark checks that none was.

#include "BenchSupport.h"

#include "core/book/BookStateDTO.h"
#include "library/files/LibraryPersistence.h"
#include "library/LibraryStore.h"

#include <QCoreApplication>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>
#include <vector>

using namespace folivox;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    constexpr int kBooks = 5000;
    constexpr int kRuns = 9;
    const QString folivox = bench::folivoxBinary();
    if (folivox.isEmpty())
        return 1;
    QTemporaryDir dir;
    const QString root = dir.filePath(QStringLiteral("Library"));

    QElapsedTimer clock;
    clock.start();
    {
        auto p = std::make_shared<LibraryPersistence>(root);
        IndexFile index;
        for (int i = 0; i < kBooks; ++i) {
            BookStateDTO s = BookStateDTO::makeNew();
            s.sources = {QUrl::fromLocalFile(QStringLiteral("/audiobooks/Author %1/Book %2").arg(i % 300).arg(i))};
            for (int t = 0; t < 12; ++t) {
                Track track;
                track.url = QUrl::fromLocalFile(QStringLiteral("/audiobooks/Author %1/Book %2/%3.mp3").arg(i % 300).arg(i).arg(t));
                track.title = QStringLiteral("Part %1").arg(t);
                track.duration = 1800;
                s.tracks.push_back(track);
            }
            s.metadata.title = QStringLiteral("Book number %1 with a title of ordinary length").arg(i);
            s.metadata.author = QStringLiteral("Author %1").arg(i % 300);
            StoredBook b;
            b.state = s;
            p->writeBook(s.id, b);
            index.books.push_back(LibraryBookSummary::from(s, false, false));
        }
        p->saveIndex(index);
    }
    std::fprintf(stderr, "made a library of %d books in %.1f s (index.json %lld bytes)\n", kBooks,
                 double(clock.elapsed()) / 1000.0, static_cast<long long>(QFileInfo(root + "/index.json").size()));

    // Every record becomes unreadable for the timed runs.
    QStringList records;
    QDirIterator it(root + QStringLiteral("/books"), {QStringLiteral("book.json")}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        records << it.next();
    for (const QString& r : records) {
        QFile f(r);
        if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            f.write("not a record");
    }

    for (const bool json : {false, true}) {
        std::vector<double> times;
        for (int i = 0; i < kRuns; ++i) {
            QStringList args{QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("--library"), root};
            if (json)
                args << QStringLiteral("--json");
            const bench::Result r = bench::run(folivox, args);
            if (r.exitCode != 0) {
                std::fprintf(stderr, "folivox library list failed: %s\n", r.err.constData());
                return 1;
            }
            times.push_back(r.seconds);
        }
        std::printf("folivox library list%s, %d books: median %.1f ms over %d runs (target < 100 ms)\n",
                    json ? " --json" : "", kBooks, bench::median(times) * 1000.0, kRuns);
    }
    {
        std::vector<double> times;
        for (int i = 0; i < kRuns; ++i) {
            auto p = std::make_shared<LibraryPersistence>(root);
            LibraryStore store(p);
            QElapsedTimer t;
            t.start();
            store.load();
            times.push_back(double(t.nsecsElapsed()) / 1e9);
            if (store.summaries().size() != kBooks)
                return 1;
        }
        std::printf("LibraryStore::load() in process: median %.1f ms\n", bench::median(times) * 1000.0);
    }
    int corrupt = 0;
    QDirIterator check(root + QStringLiteral("/books"), {QStringLiteral("book.json.corrupt")}, QDir::Files,
                       QDirIterator::Subdirectories);
    while (check.hasNext()) {
        check.next();
        ++corrupt;
    }
    std::printf("book records opened by list: %d (expected 0)\n", corrupt);
    return corrupt == 0 ? 0 : 1;
}
