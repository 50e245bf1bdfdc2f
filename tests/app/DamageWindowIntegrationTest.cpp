// Damaged MP3 sources in the window: the tracks list shows each MP3's
// check, the hole of a damaged file is listed with the seconds it costs and
// the chapter it falls in, and Repair makes a clean copy that the book can
// use in place of the damaged file (undoably), the source left as it was.
#include "app/book/OpenBook.h"
#include "app/damage/DamagePanel.h"
#include "app/damage/TrackIntegrity.h"
#include "app/models/TrackTableModel.h"
#include "app/views/MainWindow.h"
#include "app/views/TracksPanel.h"
#include "main/WindowDriver.h"
#include "platform/AppPaths.h"
#include "support/Fixtures.h"

#include <QAbstractButton>
#include <QColor>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;
using folivox::test::PrivateHome;
using folivox::test::WindowDriver;

namespace {

QString checkOf(MainWindow& window, int row)
{
    return window.tracksPanel()->model()->index(row, TrackTableModel::integrity).data().toString();
}

} // namespace

TEST(DamageWindow, ADamagedMp3ShowsItsHoleAndRepairGivesACleanCopyToBuildFrom)
{
    PrivateHome home;
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("Holes"));
    ASSERT_TRUE(WindowDriver::makeMp3s(folder, {QStringLiteral("01 Clean.mp3")}, 12.0));
    const QString damaged = QDir(folder).filePath(QStringLiteral("02 Damaged.mp3"));
    ASSERT_TRUE(WindowDriver::makeDamagedMp3(damaged, 12.0, 16000)); // two seconds at 64 kb/s
    const QByteArray before = Fixtures::readFile(damaged);

    MainWindow window;
    window.show();
    window.openPaths({folder});
    ASSERT_TRUE(WindowDriver::waitForImport(window));
    ASSERT_EQ(window.book().tracks().size(), 2u);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return window.integrity().roundFinished(); }, 30000));

    // Each MP3's verdict in the list.
    EXPECT_EQ(checkOf(window, 0), QStringLiteral("Sound"));
    EXPECT_EQ(checkOf(window, 1), QStringLiteral("Damaged"));
    const QModelIndex bad = window.tracksPanel()->model()->index(1, TrackTableModel::integrity);
    EXPECT_EQ(bad.data(Qt::ForegroundRole).value<QColor>(), QColor(190, 40, 40));
    EXPECT_TRUE(bad.data(Qt::ToolTipRole).toString().startsWith(QStringLiteral("1 hole(s), 2.0 s of audio missing")))
        << bad.data(Qt::ToolTipRole).toString().toStdString();

    // The hole: where, how much, which chapter.
    DamagePanel* panel = window.tracksPanel()->damagePanel();
    ASSERT_TRUE(panel->isVisible());
    QTableWidget* holes = panel->holeList();
    ASSERT_EQ(holes->rowCount(), 1);
    EXPECT_EQ(holes->item(0, 0)->text(), QStringLiteral("02 Damaged.mp3"));
    EXPECT_EQ(holes->item(0, 2)->text(), QStringLiteral("2.0 s"));
    EXPECT_EQ(holes->item(0, 3)->text(), QStringLiteral("02 Damaged"));
    const std::vector<TrackIntegrity::Hole> found = window.integrity().holes(window.book().tracks()[1]);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_NEAR(found[0].missingSeconds, 2.0, 0.1);
    EXPECT_NEAR(found[0].fileTime, 6.0, 0.3);
    EXPECT_TRUE(panel->summaryLabel()->text().startsWith(QStringLiteral("1 damaged MP3 file(s) with 1 hole(s): 2.0 s of audio missing.")))
        << panel->summaryLabel()->text().toStdString();

    // Repair: a clean copy, offered for the book.
    QTest::mouseClick(panel->repairButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !WindowDriver::alerts(window).isEmpty(); }, 60000));
    QMessageBox* offer = WindowDriver::alerts(window).first();
    ASSERT_EQ(offer->windowTitle(), QStringLiteral("Build from the repaired copies?"));
    for (QAbstractButton* b : offer->buttons())
        if (b->text() == QStringLiteral("Use Repaired Copies"))
            b->click();
    const QString copy = window.book().tracks()[1].url.toLocalFile();
    EXPECT_NE(copy, damaged);
    EXPECT_TRUE(copy.startsWith(QDir(AppPaths::appSupportDir()).filePath(QStringLiteral("Repaired/")))) << copy.toStdString();
    EXPECT_EQ(window.book().chapters()[1].tracks.front().url.toLocalFile(), copy);
    EXPECT_EQ(Fixtures::readFile(damaged), before);
    EXPECT_NEAR(Fixtures::decodedDuration(copy), 12.0, 0.2);

    // The copy is sound; nothing is damaged any more.
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return window.integrity().roundFinished() && checkOf(window, 1) == QStringLiteral("Sound"); }, 30000));
    EXPECT_FALSE(panel->isVisible());

    // Undo brings the damaged file back, and its hole with it.
    window.book().undo();
    EXPECT_EQ(window.book().tracks()[1].url.toLocalFile(), damaged);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return checkOf(window, 1) == QStringLiteral("Damaged"); }, 30000));
    EXPECT_TRUE(panel->isVisible());

    // A copy made and not used is not left behind; the first one, which the
    // redo history still names, stays.
    QTest::mouseClick(panel->repairButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !WindowDriver::alerts(window).isEmpty(); }, 60000));
    const QStringList repaired = QDir(QFileInfo(copy).absolutePath()).entryList(QDir::Files);
    EXPECT_EQ(repaired.size(), 2);
    for (QAbstractButton* b : WindowDriver::alerts(window).first()->buttons())
        if (b->text() == QStringLiteral("Keep the Damaged Files"))
            b->click();
    EXPECT_EQ(window.book().tracks()[1].url.toLocalFile(), damaged);
    EXPECT_EQ(QDir(QFileInfo(copy).absolutePath()).entryList(QDir::Files), QStringList{QFileInfo(copy).fileName()});
}
