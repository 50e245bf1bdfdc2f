// The library window over 2,000 books with real thumbnails (a JPEG of 512 px
// per book, made by the library's own Thumbnailer from a 1000 px cover): how
// long the window takes to show the library, and how long each frame takes
// while the grid (and then the list) scrolls through every book.
//
//   cmake --build build --target bench_app_library_scroll && build/bin/bench_app_library_scroll
//   options: --books N (2000), --step PX (pixels scrolled a frame, 120),
//            --library DIR (make it there once, then reuse it)
//
// Runs on Qt's offscreen platform unless QT_QPA_PLATFORM says otherwise:
// each frame is a synchronous repaint of the view into the window's backing
// store (real raster work), followed by the events that arrived meanwhile
// (covers decoded by the thumbnail worker). A frame is what the user waits
// for between two scroll steps; 16.7 ms is one refresh at 60 Hz.

#include "BenchSupport.h"

#include "app/library/LibraryController.h"
#include "app/library/LibraryFilterModel.h"
#include "app/library/LibraryModel.h"
#include "app/library/LibraryView.h"
#include "app/library/ThumbnailCache.h"
#include "app/playback/BookPlayer.h"
#include "app/views/MainWindow.h"
#include "core/book/BookStateDTO.h"
#include "library/files/IndexFile.h"
#include "library/files/LibraryPersistence.h"
#include "library/StoredBook.h"
#include "library/Thumbnailer.h"

#include <QApplication>
#include <QBuffer>
#include <QElapsedTimer>
#include <QImage>
#include <QListView>
#include <QPainter>
#include <QScrollBar>
#include <QTableView>
#include <QTemporaryDir>

#include <algorithm>
#include <ctime>
#include <cstdio>
#include <vector>

using namespace folivox;

namespace {

QByteArray coverJpeg(int n)
{
    QImage image(1000, 1000, QImage::Format_RGB32);
    QPainter p(&image);
    QLinearGradient sky(0, 0, 0, 1000);
    sky.setColorAt(0, QColor::fromHsv((n * 37) % 360, 160, 90));
    sky.setColorAt(1, QColor::fromHsv((n * 37 + 40) % 360, 120, 230));
    p.fillRect(image.rect(), sky);
    p.setPen(Qt::white);
    QFont f;
    f.setPixelSize(90);
    f.setBold(true);
    p.setFont(f);
    p.drawText(QRect(50, 80, 900, 400), Qt::AlignCenter | Qt::TextWordWrap, QStringLiteral("Cover number %1").arg(n));
    p.setBrush(QColor(250, 240, 220));
    p.drawEllipse(QPoint(500, 700), 150, 150);
    p.end();
    QByteArray bytes;
    QBuffer b(&bytes);
    b.open(QIODevice::WriteOnly);
    image.save(&b, "JPEG", 90);
    return bytes;
}

// A library of `books` books whose tracks are one small real file (so none
// needs attention), each with its own thumbnail file.
void makeLibrary(const QString& root, int books)
{
    QElapsedTimer clock;
    clock.start();
    QDir().mkpath(root + QStringLiteral("/../audio"));
    const QString audio = QDir(root + QStringLiteral("/../audio")).absoluteFilePath(QStringLiteral("part.mp3"));
    QFile(audio).open(QIODevice::WriteOnly);
    std::vector<QByteArray> thumbs;
    for (int i = 0; i < 64; ++i)
        thumbs.push_back(Thumbnailer::make(coverJpeg(i)));
    auto p = std::make_shared<LibraryPersistence>(root);
    IndexFile index;
    for (int i = 0; i < books; ++i) {
        BookStateDTO s = BookStateDTO::makeNew();
        s.sources = {QUrl::fromLocalFile(QFileInfo(audio).absolutePath())};
        for (int t = 0; t < 3; ++t) {
            Track track;
            track.url = QUrl::fromLocalFile(audio);
            track.title = QStringLiteral("Part %1").arg(t + 1);
            track.duration = 1200 + (i * 7 % 900);
            s.tracks.push_back(track);
        }
        s.metadata.title = QStringLiteral("A Book of Ordinary Length, Volume %1").arg(i + 1);
        s.metadata.author = QStringLiteral("Author %1").arg(i % 300);
        s.metadata.narrator = QStringLiteral("Narrator %1").arg(i % 120);
        StoredBook b;
        b.state = s;
        p->writeBook(s.id, b);
        p->writeThumbnail(s.id, thumbs[size_t(i) % thumbs.size()], QStringLiteral("cover-%1.jpg").arg(i % 64));
        index.books.push_back(LibraryBookSummary::from(s, true, false));
        if ((i + 1) % 500 == 0)
            std::fprintf(stderr, "  %d books written\n", i + 1);
    }
    p->saveIndex(index);
    std::fprintf(stderr, "made a library of %d books with thumbnails in %.1f s\n", books, double(clock.elapsed()) / 1000.0);
}

// CPU time of the calling thread, in ms: a frame's own cost, apart from the
// time other processes took the processor (the build machine is shared).
double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

struct Frames {
    std::vector<double> ms;  // wall time of each frame
    std::vector<double> cpu; // the main thread's processor time in it
    int cards = 0;       // cards painted
    int withCover = 0;   // ... with their own picture (not the placeholder)

    static double percentile(std::vector<double> v, double q)
    {
        std::sort(v.begin(), v.end());
        return v.empty() ? 0 : v[std::min(v.size() - 1, size_t(q * double(v.size())))];
    }
    void print(const char* what) const
    {
        const auto over = [](const std::vector<double>& v) {
            return static_cast<long long>(std::count_if(v.begin(), v.end(), [](double t) { return t > 1000.0 / 60.0; }));
        };
        std::printf("%s: %zu frames; %d%% of the books on screen had their own cover in the frame\n"
                    "    wall: median %.2f ms, p95 %.2f ms, p99 %.2f ms, max %.2f ms; %lld over 16.7 ms\n"
                    "    cpu:  median %.2f ms, p95 %.2f ms, p99 %.2f ms, max %.2f ms; %lld over 16.7 ms\n",
                    what, ms.size(), cards ? 100 * withCover / cards : 0, percentile(ms, 0.5), percentile(ms, 0.95),
                    percentile(ms, 0.99), percentile(ms, 1.0), over(ms), percentile(cpu, 0.5), percentile(cpu, 0.95),
                    percentile(cpu, 0.99), percentile(cpu, 1.0), over(cpu));
    }
};

// Scrolls a view top to bottom `step` pixels a frame at 60 frames a second,
// timing the work of each frame: the scroll, the paint of the whole view and
// the events that came meanwhile (covers decoded by the thumbnail worker).
// What is left of the frame's 16.7 ms goes to the event loop, as it would
// between two screen refreshes.
Frames scrollThrough(QAbstractItemView* view, int step, int coverRole)
{
    Frames f;
    QScrollBar* bar = view->verticalScrollBar();
    bar->setValue(0);
    QApplication::processEvents();
    const qint64 frameNs = 1'000'000'000 / 60;
    for (int value = 0;; value = std::min(value + step, bar->maximum())) {
        QElapsedTimer t;
        t.start();
        const double cpuStart = threadCpuMs();
        bar->setValue(value);
        // What this frame shows: which books on screen have their cover.
        const QRect visible = view->viewport()->rect();
        for (int y = 4; y < visible.height(); y += 30) {
            for (int x = 20; x < visible.width(); x += LibraryModel::kGridCover + 20) {
                const QModelIndex i = view->indexAt(QPoint(x, y));
                if (!i.isValid() || i.column() != 0)
                    continue;
                ++f.cards;
                if (!i.data(coverRole).value<QPixmap>().isNull())
                    ++f.withCover;
            }
        }
        view->viewport()->repaint();
        QApplication::processEvents();
        f.ms.push_back(double(t.nsecsElapsed()) / 1e6);
        f.cpu.push_back(threadCpuMs() - cpuStart);
        while (t.nsecsElapsed() < frameNs)
            QApplication::processEvents(QEventLoop::AllEvents, 1);
        if (value >= bar->maximum())
            break;
    }
    return f;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir home;
    qputenv("FOLIVOX_HOME", home.filePath(QStringLiteral("home")).toUtf8());
    BookPlayer::preferFFmpegBackend();
    QApplication app(argc, argv);
    int books = 2000;
    int step = 120;
    QString root;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args[i] == u"--books")
            books = args[i + 1].toInt();
        else if (args[i] == u"--step")
            step = args[i + 1].toInt();
        else if (args[i] == u"--library")
            root = QFileInfo(args[i + 1]).absoluteFilePath();
    }
    if (root.isEmpty())
        root = home.filePath(QStringLiteral("Library"));
    if (!QFileInfo::exists(root + QStringLiteral("/index.json")))
        makeLibrary(root, books);
    qputenv("FOLIVOX_LIBRARY", root.toUtf8());

    // Showing the library: the window made (the library's index read, the
    // queue opened), shown, and its first frame painted; then the covers of
    // the first screen decoded and painted.
    QElapsedTimer clock;
    clock.start();
    auto* window = new MainWindow;
    window->resize(1280, 820);
    window->showView(MainWindow::View::library);
    const double made = double(clock.nsecsElapsed()) / 1e6;
    window->show();
    LibraryView* view = window->libraryView();
    QListView* grid = view->gridView();
    QApplication::processEvents();
    grid->viewport()->repaint();
    const double firstFrame = double(clock.nsecsElapsed()) / 1e6;
    const auto firstScreenHasCovers = [&] {
        const QRect visible = grid->viewport()->rect();
        for (int y = 10; y < visible.height(); y += 60)
            for (int x = 20; x < visible.width(); x += 60) {
                const QModelIndex i = grid->indexAt(QPoint(x, y));
                if (i.isValid() && i.data(LibraryModel::CoverRole).value<QPixmap>().isNull())
                    return false;
            }
        return true;
    };
    while (!firstScreenHasCovers() && clock.elapsed() < 30000) {
        QApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    grid->viewport()->repaint();
    const double covered = double(clock.nsecsElapsed()) / 1e6;
    const int shown = view->model()->rowCount();
    std::printf("library of %d books (%d shown), window 1280x820, %s platform\n", books, shown,
                qPrintable(QGuiApplication::platformName()));
    std::printf("show the library: window made %.0f ms, first frame %.0f ms, first screen's covers in %.0f ms\n", made,
                firstFrame, covered);

    // Scrolling: the grid, then the list, from top to bottom.
    const Frames gridFrames = scrollThrough(grid, step, LibraryModel::CoverRole);
    gridFrames.print(qPrintable(QStringLiteral("grid scroll, %1 px a frame").arg(step)));
    // Again at the same speed, the covers now in the cache (up to its size).
    const Frames again = scrollThrough(grid, step, LibraryModel::CoverRole);
    again.print(qPrintable(QStringLiteral("grid scroll again, %1 px a frame").arg(step)));
    view->setLayout(LibraryView::Layout::list);
    QApplication::processEvents();
    const Frames listFrames = scrollThrough(view->listView(), step, LibraryModel::ListCoverRole);
    listFrames.print(qPrintable(QStringLiteral("list scroll, %1 px a frame").arg(step)));

    delete window;
    return shown == books ? 0 : 1;
}
