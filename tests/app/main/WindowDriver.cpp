#include "main/WindowDriver.h"

#include "app/book/OpenBook.h"
#include "app/views/MainWindow.h"
#include "support/Fixtures.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QImage>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QTest>
#include <QUrl>

namespace folivox::test {

bool WindowDriver::drop(QWidget* target, const QStringList& paths)
{
    QMimeData data;
    QList<QUrl> urls;
    for (const QString& p : paths)
        urls << QUrl::fromLocalFile(p);
    data.setUrls(urls);
    const QPoint at = target->rect().center();
    QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    if (!enter.isAccepted())
        return false;
    QDropEvent dropEvent(QPointF(at), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &dropEvent);
    return dropEvent.isAccepted();
}

bool WindowDriver::waitUntil(const std::function<bool()>& condition, int timeoutMs)
{
    return QTest::qWaitFor(condition, timeoutMs);
}

bool WindowDriver::waitForImport(MainWindow& window, int timeoutMs)
{
    QTest::qWait(1);
    return waitUntil([&] { return !window.book().isImporting(); }, timeoutMs);
}

QList<QMessageBox*> WindowDriver::alerts(MainWindow& window)
{
    return window.openAlerts();
}

void WindowDriver::dismissAlerts(MainWindow& window)
{
    for (QMessageBox* box : window.openAlerts())
        if (!box->buttons().isEmpty())
            box->buttons().first()->click();
    QTest::qWait(1);
}

bool WindowDriver::makeMp3s(const QString& folder, const QStringList& names, double seconds)
{
    QDir().mkpath(folder);
    int frequency = 300;
    for (const QString& name : names) {
        if (!Fixtures::tone(QDir(folder).filePath(name), seconds,
                            {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"),
                             QStringLiteral("64k")},
                            44100, 1, frequency))
            return false;
        frequency += 110;
    }
    return true;
}

bool WindowDriver::makePng(const QString& path, int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(QColor(40, 90, 160));
    QPainter p(&image);
    p.fillRect(width / 4, height / 4, width / 2, height / 2, QColor(240, 200, 60));
    p.end();
    return image.save(path, "PNG");
}

bool WindowDriver::makeDamagedMp3(const QString& path, double seconds, int noiseBytes)
{
    const QString whole = path + QStringLiteral(".whole.mp3");
    if (!Fixtures::tone(whole, seconds, {QStringLiteral("-c:a"), QStringLiteral("libmp3lame"), QStringLiteral("-b:a"), QStringLiteral("64k")},
                        44100, 1, 330))
        return false;
    QByteArray bytes = Fixtures::readFile(whole);
    QFile::remove(whole);
    // At a frame boundary (a header with another one a frame later), so no
    // frame is cut and the hole is the junk alone.
    const auto isHeader = [&bytes](qsizetype p) {
        return p + 1 < bytes.size() && uchar(bytes[p]) == 0xFF && (uchar(bytes[p + 1]) & 0xE0) == 0xE0;
    };
    qsizetype at = bytes.size() / 2;
    while (at < bytes.size() && !(isHeader(at) && (isHeader(at + 208) || isHeader(at + 209))))
        ++at;
    if (at >= bytes.size())
        return false;
    QByteArray noise(noiseBytes, Qt::Uninitialized);
    for (qsizetype i = 0; i < noise.size(); ++i)
        noise[i] = char((i * 7919 + 13) % 127); // below 0x80: never a frame sync
    bytes.insert(at, noise);
    return Fixtures::writeFile(path, bytes);
}

bool WindowDriver::makeBookFolder(const QString& folder, int tracks, double seconds, bool withCover)
{
    QStringList names;
    for (int i = 1; i <= tracks; ++i)
        names << QStringLiteral("%1 Part %2.mp3").arg(i, 2, 10, QChar(u'0')).arg(i);
    if (!makeMp3s(folder, names, seconds))
        return false;
    return !withCover || makePng(QDir(folder).filePath(QStringLiteral("cover.png")), 600, 600);
}

PrivateHome::PrivateHome()
    : dir_(QDir::tempPath() + QStringLiteral("/folivox-app-home-XXXXXX"))
    , home_("FOLIVOX_HOME", dir_.path())
{
}

} // namespace folivox::test
