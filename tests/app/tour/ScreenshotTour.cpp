// Renders the book window in its main states to PNG files, for the README:
// empty, a book loaded, building, built, playing. Makes its own audio with
// ffmpeg in a temporary folder and keeps its settings apart from the user's.
//
//   folivox_app_screenshots OUTPUT_FOLDER
#include "app/book/OpenBook.h"
#include "app/build/BuildRunner.h"
#include "app/playback/BookPlayer.h"
#include "app/views/DetailsPanel.h"
#include "app/views/ExportPanel.h"
#include "app/views/MainWindow.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>

#include <cstdio>

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

bool tone(const QString& path, double seconds, int frequency)
{
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"),
                 {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"), QStringLiteral("-y"),
                  QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                  QStringLiteral("sine=frequency=%1:duration=%2").arg(frequency).arg(seconds), QStringLiteral("-ac"),
                  QStringLiteral("2"), QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"),
                  QStringLiteral("96k"), QStringLiteral("-metadata"), QStringLiteral("album=The Lighthouse Keeper"),
                  QStringLiteral("-metadata"), QStringLiteral("artist=Maren Holt"), path});
    return ffmpeg.waitForFinished(120000) && ffmpeg.exitCode() == 0;
}

bool cover(const QString& path)
{
    QImage image(800, 800, QImage::Format_RGB32);
    QPainter p(&image);
    QLinearGradient sky(0, 0, 0, 800);
    sky.setColorAt(0, QColor(20, 40, 80));
    sky.setColorAt(1, QColor(230, 140, 80));
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
    p.drawText(QRect(0, 40, 800, 100), Qt::AlignCenter, QStringLiteral("The Lighthouse Keeper"));
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
    window.close();
    return ok ? 0 : 1;
}
