// Renders the window in its main states to PNG files, for the README: the
// book view (empty, a book loaded, building, built, playing), the library
// as covers and as a list, the queue running and halted, an update in place
// and a damaged track. Makes its own audio with ffmpeg in a temporary folder
// and keeps its settings, library and queue apart from the user's.
//
//   folivox_app_screenshots OUTPUT_FOLDER
#include "app/book/OpenBook.h"
#include "app/build/BuildRunner.h"
#include "app/damage/TrackIntegrity.h"
#include "app/inplace/InPlaceUpdateViewModel.h"
#include "app/library/AddBooksDialog.h"
#include "app/library/LibraryController.h"
#include "app/library/LibraryView.h"
#include "app/library/ThumbnailCache.h"
#include "app/playback/BookPlayer.h"
#include "app/queue/QueueView.h"
#include "app/queue/QueueWorkspace.h"
#include "app/views/DetailsPanel.h"
#include "app/views/ExportPanel.h"
#include "app/views/MainWindow.h"
#include "container/io/FaultInjection.h"
#include "library/LibraryStore.h"
#include "queue/run/QueueController.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QStatusBar>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include <sys/mount.h>
#include <unistd.h>

using namespace folivox;

namespace {

void wait(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < timeoutMs) {
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
}

void settle(int ms = 150)
{
    wait([] { return false; }, ms);
}

bool tone(const QString& path, double seconds, int frequency, const QString& album = QStringLiteral("The Lighthouse Keeper"),
          const QString& artist = QStringLiteral("Maren Holt"))
{
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"),
                 {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-y"),
                  QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                  QStringLiteral("sine=frequency=%1:duration=%2").arg(frequency).arg(seconds), QStringLiteral("-ac"),
                  QStringLiteral("2"), QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"),
                  QStringLiteral("96k"), QStringLiteral("-metadata"), QStringLiteral("album=") + album,
                  QStringLiteral("-metadata"), QStringLiteral("artist=") + artist, path});
    return ffmpeg.waitForFinished(120000) && ffmpeg.exitCode() == 0;
}

// A cover with a sky of two colours, the title on top, and a lighthouse.
bool cover(const QString& path, const QString& title = QStringLiteral("The Lighthouse Keeper"),
           const QColor& top = QColor(20, 40, 80), const QColor& bottom = QColor(230, 140, 80))
{
    QImage image(800, 800, QImage::Format_RGB32);
    QPainter p(&image);
    QLinearGradient sky(0, 0, 0, 800);
    sky.setColorAt(0, top);
    sky.setColorAt(1, bottom);
    p.fillRect(image.rect(), sky);
    p.setBrush(QColor(245, 240, 225));
    p.setPen(Qt::NoPen);
    p.drawRect(360, 300, 80, 380);
    p.setBrush(QColor(200, 50, 40));
    p.drawRect(360, 360, 80, 40);
    p.drawRect(360, 460, 80, 40);
    p.setBrush(QColor(255, 230, 120));
    p.drawEllipse(QPoint(400, 270), 50, 50);
    p.setBrush(QColor(30, 50, 70));
    p.drawRect(0, 680, 800, 120);
    p.setPen(QColor(250, 250, 250));
    QFont f = p.font();
    f.setPixelSize(64);
    f.setBold(true);
    p.setFont(f);
    p.drawText(QRect(40, 30, 720, 200), Qt::AlignCenter | Qt::TextWordWrap, title);
    p.end();
    return image.save(path, "JPG", 90);
}

bool shoot(QWidget& window, const QString& folder, const QString& name)
{
    settle();
    const QString path = QDir(folder).filePath(name + QStringLiteral(".png"));
    const bool ok = window.grab().save(path, "PNG");
    std::printf("%s %s\n", ok ? "wrote" : "FAILED", qPrintable(path));
    return ok;
}

// Holds an update in place at a point of its write until released.
class Gate {
public:
    explicit Gate(const char* point)
        : scope_([this, point](const QString& reached) {
            if (reached != QLatin1String(point))
                return;
            reached_ = true;
            while (!open_)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        })
    {
    }
    ~Gate() { open_ = true; }
    bool reached() const { return reached_; }
    void open() { open_ = true; }

private:
    std::atomic<bool> reached_{false};
    std::atomic<bool> open_{false};
    FaultInjection::Scope scope_;
};

struct ShelfBook {
    const char* title;
    const char* author;
    QColor top;
    QColor bottom;
    int tracks;
};

// A shelf of books in folders of their own, with covers (all but one).
bool makeShelf(const QString& shelf)
{
    const ShelfBook books[] = {
        {"Salt and Stone", "Ida Varga", QColor(30, 70, 60), QColor(200, 190, 120), 2},
        {"The Long Winter Road", "Tomas Lind", QColor(60, 80, 120), QColor(220, 220, 235), 2},
        {"Orchard Letters", "Ruth Calder", QColor(120, 40, 50), QColor(240, 180, 120), 2},
        {"A Map of Small Rivers", "Jonah Price", QColor(20, 60, 110), QColor(90, 170, 200), 2},
        {"Night Ferry", "Elena Sorrel", QColor(10, 10, 40), QColor(80, 60, 140), 2},
        {"The Glass Observatory", "Paul Okafor", QColor(40, 40, 40), QColor(160, 200, 210), 2},
        {"Harvest of Echoes", "Ida Varga", QColor(110, 70, 20), QColor(230, 200, 90), 2},
        {"Field Notes on Silence", "Mira Hale", QColor(70, 90, 70), QColor(210, 220, 200), 2},
        {"Untitled Draft", "Unknown", QColor(0, 0, 0), QColor(0, 0, 0), 1},
    };
    int frequency = 200;
    for (const ShelfBook& b : books) {
        const QString folder = QDir(shelf).filePath(QString::fromUtf8(b.title));
        QDir().mkpath(folder);
        for (int t = 1; t <= b.tracks; ++t) {
            if (!tone(QDir(folder).filePath(QStringLiteral("%1 Part %2.mp3").arg(t, 2, 10, QChar(u'0')).arg(t)), 60.0, frequency,
                      QString::fromUtf8(b.title), QString::fromUtf8(b.author)))
                return false;
            frequency += 25;
        }
        if (b.top != QColor(0, 0, 0) && !cover(QDir(folder).filePath(QStringLiteral("cover.jpg")), QString::fromUtf8(b.title), b.top, b.bottom))
            return false;
    }
    return true;
}

QUuid idOf(MainWindow& window, const QString& title)
{
    for (const LibraryBookSummary& s : window.library().summaries())
        if (s.title == title)
            return s.id;
    return {};
}

// Waits for the decoder to bring the covers that are on screen.
void waitForCovers(MainWindow& window)
{
    wait([&] { return window.libraryView()->thumbnails()->pending() == 0; }, 10000);
    settle(300);
}

// A small disk of its own for a queue that fills it (root only); else nothing.
QString smallDisk(const QString& folder)
{
    QDir().mkpath(folder);
    if (::geteuid() != 0 || ::mount("tmpfs", QFile::encodeName(folder).constData(), "tmpfs", 0, "size=16k") != 0)
        return {};
    return folder;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir work(QDir::tempPath() + QStringLiteral("/folivox-screenshots-XXXXXX"));
    qputenv("FOLIVOX_HOME", work.filePath(QStringLiteral("home")).toUtf8());
    folivox::BookPlayer::preferFFmpegBackend();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Folivox"));
    if (argc < 2) {
        std::fprintf(stderr, "usage: folivox_app_screenshots OUTPUT_FOLDER\n");
        return 2;
    }
    const QString out = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
    QDir().mkpath(out);

    const QString folder = work.filePath(QStringLiteral("The Lighthouse Keeper"));
    QDir().mkpath(folder);
    const QStringList names{QStringLiteral("01 - Chapter One - The Storm.mp3"),
                            QStringLiteral("02 - Chapter Two - A Light at Sea.mp3"),
                            QStringLiteral("03 - Chapter Three - The Keeper's Log.mp3"),
                            QStringLiteral("04 - Chapter Four - Fog.mp3"),
                            QStringLiteral("05 - Chapter Five - The Rescue.mp3"),
                            QStringLiteral("06 - Chapter Six - Morning.mp3")};
    int frequency = 220;
    for (const QString& n : names) {
        if (!tone(QDir(folder).filePath(n), 150.0, frequency)) {
            std::fprintf(stderr, "ffmpeg could not make the sample audio\n");
            return 1;
        }
        frequency += 70;
    }
    if (!cover(QDir(folder).filePath(QStringLiteral("cover.jpg"))))
        return 1;
    const QString books = work.filePath(QStringLiteral("Books"));
    QDir().mkpath(books);

    MainWindow window;
    window.resize(1280, 820);
    window.exportPanel()->setDestinationFolder(books);
    window.show();
    bool ok = shoot(window, out, QStringLiteral("empty"));

    window.openPaths({folder});
    wait([&] { return !window.book().isImporting() && !window.book().isEmpty(); }, 60000);
    BookMetadata m = window.book().metadata();
    m.narrator = QStringLiteral("Jonas Brekke");
    m.seriesName = QStringLiteral("Coastal Tales");
    m.seriesIndex = SeriesIndex::parse(QStringLiteral("2"));
    m.year = QStringLiteral("2021");
    m.genre = QStringLiteral("Fiction");
    m.summary = QStringLiteral("A keeper, a storm and the ship that should not have been there.");
    window.book().setMetadata(m);
    QStringList titles;
    for (const Bookmark& b : window.book().chapters())
        titles << b.title.section(QStringLiteral(" - "), 1);
    window.book().setChapterTitles(titles, QStringLiteral("Batch Rename"));
    window.sideTabs()->setCurrentIndex(MainWindow::detailsTab);
    ok = shoot(window, out, QStringLiteral("book-loaded")) && ok;

    ExportSettings s = window.book().settings();
    s.passthroughPolicy = PassthroughPolicy::disabled;
    s.cbrBitrateKbps = 64;
    window.book().setSettings(s);
    window.sideTabs()->setCurrentIndex(MainWindow::exportTab);
    window.startBuild();
    wait([&] { return !window.runner().isRunning() || window.runner().fraction() > 0.3; }, 120000);
    ok = shoot(window, out, QStringLiteral("building")) && ok;
    wait([&] { return !window.runner().isRunning(); }, 300000);
    ok = shoot(window, out, QStringLiteral("built")) && ok;

    window.sideTabs()->setCurrentIndex(MainWindow::detailsTab);
    window.player().playChapter(2);
    window.player().seek(window.player().timeline().chapterStart(2) + 83.0);
    ok = shoot(window, out, QStringLiteral("playing")) && ok;
    window.player().stop();

    // The library: the book kept there, a shelf added beside it.
    window.keepOpenBookInLibrary();
    const QString shelf = work.filePath(QStringLiteral("Shelf"));
    if (!makeShelf(shelf)) {
        std::fprintf(stderr, "ffmpeg could not make the shelf's audio\n");
        return 1;
    }
    AppPreferences preferences = window.preferences();
    preferences.defaultOutputFolder = books;
    preferences.queueFolderTemplate = QStringLiteral("{author}");
    window.applyPreferences(preferences);
    window.showView(MainWindow::View::library);
    window.libraryView()->addFolders({shelf});
    wait([&] { return window.libraryView()->addDialog() && window.libraryView()->addDialog()->isFinished(); }, 300000);
    window.libraryView()->addDialog()->close();
    // An edit since the build, a book whose sources went away.
    BookMetadata edited = window.book().metadata();
    edited.narrator = QStringLiteral("Jonas Brekke and Ada Moss");
    window.book().setMetadata(edited);
    window.library().saveOpenBook();
    const QUuid draft = idOf(window, QStringLiteral("Untitled Draft"));
    const BookStateDTO draftState = window.library().store()->loadState(draft);
    QFile::remove(draftState.tracks.front().url.toLocalFile());
    window.library().store()->refreshAttention(draft, true);
    // Three books queued from the library.
    window.libraryView()->selectBooks({idOf(window, QStringLiteral("Salt and Stone")), idOf(window, QStringLiteral("Night Ferry")),
                                       idOf(window, QStringLiteral("Orchard Letters"))});
    window.addBooksToQueue(window.libraryView()->selectedBooks());
    settle(300);

    // The queue at work: the second book half built.
    QueueController& queue = *window.queue().controller();
    window.showView(MainWindow::View::queue);
    queue.start();
    wait([&] {
        const auto& jobs = queue.jobs();
        return !queue.isProcessing() || (jobs.size() > 1 && jobs[1].status == QueueJobStatus::running && jobs[1].progress > 0.35);
    }, 300000);
    window.queueView()->selectJob(queue.jobs().front().id);
    ok = shoot(window, out, QStringLiteral("queue-running")) && ok;
    wait([&] { return !queue.isProcessing(); }, 600000);

    // The library after the run: built, changed, queued (to a destination
    // that will fill up), open, needing attention.
    const QString small = smallDisk(work.filePath(QStringLiteral("SmallDisk")));
    preferences.defaultOutputFolder = small.isEmpty() ? work.filePath(QStringLiteral("Gone")) : small;
    QDir().mkpath(preferences.defaultOutputFolder);
    window.applyPreferences(preferences);
    window.addBooksToQueue({idOf(window, QStringLiteral("A Map of Small Rivers")), idOf(window, QStringLiteral("The Glass Observatory"))});
    settle(300);
    window.showView(MainWindow::View::library);
    window.libraryView()->selectBooks({idOf(window, QStringLiteral("The Lighthouse Keeper"))});
    waitForCovers(window);
    ok = shoot(window, out, QStringLiteral("library-grid")) && ok;
    window.libraryView()->setLayout(LibraryView::Layout::list);
    waitForCovers(window);
    ok = shoot(window, out, QStringLiteral("library-list")) && ok;
    window.libraryView()->setLayout(LibraryView::Layout::grid);

    // A destination that fills up halts the queue.
    window.showView(MainWindow::View::queue);
    if (small.isEmpty())
        QDir(preferences.defaultOutputFolder).removeRecursively(); // no small disk: a destination that went away
    queue.start();
    wait([&] { return !queue.isProcessing() && queue.haltMessage(); }, 300000);
    window.queueView()->selectJob(queue.jobs()[3].id);
    ok = shoot(window, out, QStringLiteral("queue-halted")) && ok;
    if (!small.isEmpty())
        ::umount2(QFile::encodeName(small).constData(), MNT_DETACH);

    // An update in place of the built book, caught as it writes the tags.
    window.showView(MainWindow::View::book);
    window.sideTabs()->setCurrentIndex(MainWindow::detailsTab);
    BookMetadata retitled = window.book().metadata();
    retitled.title = QStringLiteral("The Lighthouse Keeper (Revised)");
    window.book().setMetadata(retitled);
    window.statusBar()->clearMessage();
    settle();
    {
        Gate gate("inplace.file.prepared");
        window.updateInPlace();
        wait([&] { return gate.reached(); }, 60000);
        settle(400);
        ok = shoot(window, out, QStringLiteral("in-place-update")) && ok;
        gate.open();
        wait([&] { return !window.inPlace().isRunning(); }, 60000);
    }

    // A book whose second file has a hole.
    const QString holes = work.filePath(QStringLiteral("Tidewater"));
    QDir().mkpath(holes);
    for (int i = 1; i <= 3; ++i)
        tone(QDir(holes).filePath(QStringLiteral("0%1 Tidewater.mp3").arg(i)), 40.0, 300 + 40 * i, QStringLiteral("Tidewater"),
             QStringLiteral("Noor Amsel"));
    {
        QFile f(QDir(holes).filePath(QStringLiteral("02 Tidewater.mp3")));
        f.open(QIODevice::ReadWrite);
        QByteArray bytes = f.readAll();
        qsizetype at = bytes.size() / 2;
        while (at + 1 < bytes.size() && !(uchar(bytes[at]) == 0xFF && (uchar(bytes[at + 1]) & 0xE0) == 0xE0))
            ++at;
        QByteArray noise(36000, Qt::Uninitialized);
        for (qsizetype i = 0; i < noise.size(); ++i)
            noise[i] = char((i * 7919 + 13) % 127);
        bytes.insert(at, noise);
        f.seek(0);
        f.write(bytes);
    }
    window.newBook();
    window.openPaths({holes});
    wait([&] { return !window.book().isImporting() && !window.book().isEmpty() && window.integrity().roundFinished(); }, 60000);
    window.sideTabs()->setCurrentIndex(MainWindow::detailsTab);
    ok = shoot(window, out, QStringLiteral("damaged-track")) && ok;

    window.close();
    return ok ? 0 : 1;
}
