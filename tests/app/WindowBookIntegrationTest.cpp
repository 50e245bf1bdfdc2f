// The book window on real audio: import alerts, chapter edits and undo,
// chapter files with their match, track order, the session's tear-down,
// the working state across a restart, and playback's chapter tracking.
#include "app/book/OpenBook.h"
#include "app/book/WorkingStateStore.h"
#include "app/models/ChapterTableModel.h"
#include "app/models/TrackTableModel.h"
#include "app/playback/BookPlayer.h"
#include "app/views/ChaptersPanel.h"
#include "app/views/DetailsPanel.h"
#include "app/views/ExportPanel.h"
#include "app/views/MainWindow.h"
#include "app/views/TracksPanel.h"
#include "main/WindowDriver.h"
#include "platform/AppPaths.h"
#include "platform/Log.h"
#include "support/Fixtures.h"

#include <QAbstractSpinBox>
#include <QAccessible>
#include <QHeaderView>
#include <QProgressBar>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSlider>
#include <QTabBar>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;
using folivox::test::WindowDriver;

namespace {

QStringList titles(const OpenBook& book)
{
    QStringList t;
    for (const Bookmark& b : book.chapters())
        t << b.title;
    return t;
}

QStringList trackNames(const OpenBook& book)
{
    QStringList t;
    for (const Track& tr : book.tracks())
        t << QFileInfo(tr.url.toLocalFile()).fileName();
    return t;
}

// A window with a three-file book open.
struct OpenWindow {
    QTemporaryDir dir;
    MainWindow window;
    bool ok = false;

    OpenWindow(double seconds = 2.0)
    {
        const QString folder = dir.filePath(QStringLiteral("book"));
        if (!WindowDriver::makeMp3s(folder, {QStringLiteral("01 One.mp3"), QStringLiteral("02 Two.mp3"),
                                             QStringLiteral("03 Three.mp3")},
                                    seconds))
            return;
        window.show();
        window.openPaths({folder});
        ok = WindowDriver::waitForImport(window) && window.book().chapters().size() == 3;
    }
};

} // namespace

TEST(WindowImport, MixedM4BAndMp3SelectionShowsTheAlertAndLeavesTheBookEmpty)
{
    QTemporaryDir dir;
    const QString m4b = dir.filePath(QStringLiteral("finished.m4b"));
    ASSERT_TRUE(Fixtures::tone(m4b, 2.0, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-f"),
                                          QStringLiteral("ipod")}));
    ASSERT_TRUE(WindowDriver::makeMp3s(dir.path(), {QStringLiteral("loose.mp3")}, 2.0));

    MainWindow window;
    window.show();
    ASSERT_TRUE(WindowDriver::drop(&window, {m4b, dir.filePath(QStringLiteral("loose.mp3"))}));
    ASSERT_TRUE(WindowDriver::waitForImport(window));
    const auto alerts = WindowDriver::alerts(window);
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts.first()->windowTitle(), QStringLiteral("Cannot import M4B with other formats"));
    EXPECT_TRUE(alerts.first()->text().startsWith(QStringLiteral("You selected both M4B audiobook(s) and other audio files")));
    EXPECT_EQ(alerts.first()->buttons().size(), 1);
    EXPECT_TRUE(window.book().isEmpty());
    WindowDriver::dismissAlerts(window);
    EXPECT_TRUE(WindowDriver::alerts(window).isEmpty());

    // Adding an M4B to a book of MP3s: the add alert, and the book unchanged.
    window.openPaths({dir.filePath(QStringLiteral("loose.mp3"))});
    ASSERT_TRUE(WindowDriver::waitForImport(window));
    ASSERT_EQ(window.book().tracks().size(), 1u);
    window.openPaths({m4b});
    ASSERT_TRUE(WindowDriver::waitForImport(window));
    ASSERT_EQ(WindowDriver::alerts(window).size(), 1);
    EXPECT_EQ(WindowDriver::alerts(window).first()->windowTitle(), QStringLiteral("Cannot add M4B to existing files"));
    EXPECT_EQ(window.book().tracks().size(), 1u);
}

TEST(WindowChapters, EditsInTheTableAreUndoneAndRedone)
{
    OpenWindow w;
    ASSERT_TRUE(w.ok);
    OpenBook& book = w.window.book();
    const QStringList before = titles(book);
    QTableView* view = w.window.chaptersPanel()->view();

    // Rename the second chapter by typing into the table.
    const QModelIndex cell = view->model()->index(1, ChapterTableModel::title);
    view->edit(cell);
    auto* line = view->viewport()->findChild<QLineEdit*>();
    ASSERT_NE(line, nullptr);
    line->selectAll();
    QTest::keyClicks(line, QStringLiteral("The Middle"));
    QTest::keyClick(line, Qt::Key_Return); // the delegate commits on its next turn of the event loop
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return book.chapters()[1].title == QStringLiteral("The Middle"); }, 2000));
    ASSERT_EQ(book.chapters()[1].title, QStringLiteral("The Middle"));

    // Move the third chapter's start back by half a second.
    const double oldStart = 4.0;
    ASSERT_TRUE(view->model()->setData(view->model()->index(2, ChapterTableModel::start), QStringLiteral("0:03.500")));
    EXPECT_NEAR(book.chapters()[1].duration, 1.5, 0.05);
    EXPECT_NEAR(book.chapters()[2].duration, 2.5, 0.05);
    EXPECT_EQ(book.chapters()[2].tracks.size(), 2u); // now starts inside the second file
    EXPECT_FALSE(view->model()->setData(view->model()->index(0, ChapterTableModel::start), QStringLiteral("0:01")));

    QTest::keyClick(&w.window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_NEAR(book.chapters()[1].duration, 2.0, 0.05);
    EXPECT_NEAR(book.chapters()[2].startOffset + 4.0, oldStart, 0.05);
    QTest::keyClick(&w.window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(titles(book), before);
    QTest::keyClick(&w.window, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(book.chapters()[1].title, QStringLiteral("The Middle"));
}

TEST(WindowChapters, AChapterFileShowsItsConfidenceAndReasonAndTracksReorder)
{
    OpenWindow w;
    ASSERT_TRUE(w.ok);
    OpenBook& book = w.window.book();

    // A cue sheet naming the second file, in the same folder: 35 + 15 points
    // (its span, two seconds by the gap between its marks, does not fit six).
    const QString cue = w.dir.filePath(QStringLiteral("book/sheet.cue"));
    ASSERT_TRUE(Fixtures::writeFile(cue, "FILE \"02 Two.mp3\" MP3\n"
                                         "TRACK 01 AUDIO\n  TITLE \"Opening\"\n  INDEX 01 00:00:00\n"
                                         "TRACK 02 AUDIO\n  TITLE \"Closing\"\n  INDEX 01 00:01:00\n"));
    const QString error = book.applyChapterFile(cue);
    ASSERT_TRUE(error.isEmpty()) << error.toStdString();
    EXPECT_EQ(titles(book), (QStringList{QStringLiteral("Opening"), QStringLiteral("Closing")}));
    const QString source = w.window.chaptersPanel()->sourceLabel()->text();
    EXPECT_TRUE(source.contains(QStringLiteral("medium confidence, score 50"))) << source.toStdString();
    EXPECT_TRUE(source.contains(QStringLiteral("names the audio file"))) << source.toStdString();

    // A file that is no chapter file is refused with its name.
    const QString junk = w.dir.filePath(QStringLiteral("junk.cue"));
    ASSERT_TRUE(Fixtures::writeFile(junk, "nothing here\n"));
    EXPECT_TRUE(book.applyChapterFile(junk).contains(junk));

    // Back to one chapter per file; then dragging the last track to the top
    // takes its chapter along.
    book.layOutChapters(OpenBook::Layout::perFile);
    ASSERT_EQ(book.chapters().size(), 3u);
    book.renameChapter(2, QStringLiteral("Finale"));
    auto* model = w.window.tracksPanel()->view()->model();
    QMimeData* data = model->mimeData({model->index(2, 0)});
    model->dropMimeData(data, Qt::MoveAction, 0, 0, QModelIndex());
    delete data;
    EXPECT_EQ(trackNames(book), (QStringList{QStringLiteral("03 Three.mp3"), QStringLiteral("01 One.mp3"),
                                             QStringLiteral("02 Two.mp3")}));
    EXPECT_EQ(book.chapters().front().title, QStringLiteral("Finale"));
    QTest::keyClick(&w.window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_EQ(trackNames(book).front(), QStringLiteral("01 One.mp3"));

    // Removing a track removes its chapter.
    w.window.tracksPanel()->view()->selectRow(0);
    w.window.tracksPanel()->removeSelected();
    EXPECT_EQ(book.tracks().size(), 2u);
    EXPECT_EQ(book.chapters().size(), 2u);
}

TEST(WindowChapters, AChapterFileBesideTheAudioWithTheSameNameIsAppliedOnImport)
{
    QTemporaryDir dir;
    ASSERT_TRUE(WindowDriver::makeMp3s(dir.filePath(QStringLiteral("b")), {QStringLiteral("Novel.mp3")}, 12.0));
    ASSERT_TRUE(Fixtures::writeFile(dir.filePath(QStringLiteral("b/Novel.chapters.txt")),
                                    "00:00:00.000 Prologue\n00:00:06.000 Act One\n"));
    MainWindow window;
    window.show();
    window.openPaths({dir.filePath(QStringLiteral("b"))});
    ASSERT_TRUE(WindowDriver::waitForImport(window));
    EXPECT_EQ(titles(window.book()), (QStringList{QStringLiteral("Prologue"), QStringLiteral("Act One")}));
    EXPECT_TRUE(window.chaptersPanel()->sourceLabel()->text().contains(QStringLiteral("high confidence")));
    // Undo goes back to the chapters from the audio.
    window.book().undo();
    EXPECT_EQ(window.book().chapters().size(), 1u);
}

TEST(WindowSession, NewBookTearsDownInOrderAndStopsThePlayer)
{
    OpenWindow w;
    ASSERT_TRUE(w.ok);
    w.window.player().playChapter(1);
    EXPECT_TRUE(w.window.player().isPlaying());
    w.window.book().renameChapter(0, QStringLiteral("Renamed"));
    ASSERT_TRUE(w.window.book().canUndo());

    LogCapture log;
    QTest::keyClick(&w.window, Qt::Key_N, Qt::ControlModifier);
    QStringList steps;
    for (const QString& line : log.lines()) {
        if (line.startsWith(QStringLiteral("[BookSession] tearDown(newBook): ")))
            steps << line.section(QStringLiteral(": "), 1);
        else if (line == QStringLiteral("[Player] stopped"))
            steps << QStringLiteral("(player stopped)");
    }
    EXPECT_EQ(steps, (QStringList{QStringLiteral("cancelImport"), QStringLiteral("clearChapters"),
                                  QStringLiteral("stopPlayer"), QStringLiteral("(player stopped)"),
                                  QStringLiteral("closeEditorWindows"),
                                  QStringLiteral("clearSidecarCache"), QStringLiteral("resetImportState"),
                                  QStringLiteral("clearUndo"), QStringLiteral("clearSnapshots"),
                                  QStringLiteral("clearSelection"), QStringLiteral("resetMetadata")}));
    EXPECT_TRUE(w.window.book().isEmpty());
    EXPECT_TRUE(w.window.book().chapters().empty());
    EXPECT_FALSE(w.window.book().canUndo());
    EXPECT_FALSE(w.window.player().isPlaying());
    EXPECT_TRUE(w.window.book().metadata().title.isEmpty());
    EXPECT_EQ(w.window.chaptersPanel()->view()->model()->rowCount(), 0);
}

TEST(WindowSession, WorkingStateSurvivesARestartAndADamagedOneIsSetAside)
{
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("book"));
    ASSERT_TRUE(WindowDriver::makeMp3s(folder, {QStringLiteral("1.mp3"), QStringLiteral("2.mp3")}, 2.0));
    const QString saved = AppPaths::appSupportDir() + QStringLiteral("/LastSession.json");
    QFile::remove(saved);
    {
        MainWindow first;
        first.show();
        first.openPaths({folder});
        ASSERT_TRUE(WindowDriver::waitForImport(first));
        first.book().renameChapter(1, QStringLiteral("Second Part"));
        QLineEdit* title = first.detailsPanel()->lineEdit(QStringLiteral("title"));
        title->selectAll();
        QTest::keyClicks(title, QStringLiteral("Kept Title"));
        ExportSettings s = first.book().settings();
        s.outputFormat = OutputFormat::mp3;
        first.book().setSettings(s);
        first.close();
    }
    ASSERT_TRUE(QFile::exists(saved));
    {
        MainWindow second;
        second.restoreWorkingState();
        second.show();
        EXPECT_EQ(second.book().tracks().size(), 2u);
        EXPECT_EQ(titles(second.book()).value(1), QStringLiteral("Second Part"));
        EXPECT_EQ(second.book().metadata().title, QStringLiteral("Kept Title"));
        EXPECT_EQ(second.detailsPanel()->lineEdit(QStringLiteral("title"))->text(), QStringLiteral("Kept Title"));
        EXPECT_EQ(second.book().settings().outputFormat, OutputFormat::mp3);
        EXPECT_EQ(second.exportPanel()->formatBox()->currentText(), QStringLiteral("MP3"));
        EXPECT_EQ(second.chaptersPanel()->view()->model()->rowCount(), 2);
        // Closing with no book open leaves nothing to restore.
        second.newBook();
        second.close();
    }
    EXPECT_FALSE(QFile::exists(saved));

    ASSERT_TRUE(Fixtures::writeFile(saved, "{\"id\": 12, \"tracks\": "));
    MainWindow third;
    third.restoreWorkingState();
    third.show();
    EXPECT_TRUE(third.book().isEmpty());
    ASSERT_EQ(WindowDriver::alerts(third).size(), 1);
    EXPECT_EQ(WindowDriver::alerts(third).first()->windowTitle(), QStringLiteral("The last book could not be reopened"));
    EXPECT_FALSE(QFile::exists(saved));
    const QStringList aside =
        QDir(AppPaths::appSupportDir()).entryList({QStringLiteral("LastSession.json.damaged-*")}, QDir::Files);
    EXPECT_EQ(aside.size(), 1);
    for (const QString& f : aside)
        QFile::remove(AppPaths::appSupportDir() + u'/' + f);
}

TEST(WindowPlayback, ChaptersPlayFromTheirStartAndTheCurrentOneIsHighlighted)
{
    OpenWindow w;
    ASSERT_TRUE(w.ok);
    BookPlayer& player = w.window.player();
    auto* model = w.window.chaptersPanel()->model();
    QTableView* view = w.window.chaptersPanel()->view();

    // A double click on a chapter's number plays it from its start.
    w.window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&w.window));
    const QRect cell = view->visualRect(model->index(1, ChapterTableModel::number));
    ASSERT_TRUE(cell.isValid());
    QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::NoModifier, cell.center());
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, Qt::NoModifier, cell.center());
    EXPECT_TRUE(player.isPlaying());
    EXPECT_EQ(player.currentChapter(), std::optional<size_t>(1));
    EXPECT_NEAR(player.position(), 2.0, 0.05);
    EXPECT_EQ(model->currentChapter(), 1);
    EXPECT_TRUE(model->data(model->index(1, ChapterTableModel::title), Qt::FontRole).value<QFont>().bold());

    QTest::keyClick(&w.window, Qt::Key_Right, Qt::ControlModifier);
    EXPECT_EQ(player.currentChapter(), std::optional<size_t>(2));
    EXPECT_EQ(model->currentChapter(), 2);
    QTest::keyClick(&w.window, Qt::Key_Right, Qt::ControlModifier); // no chapter after the last
    EXPECT_EQ(player.currentChapter(), std::optional<size_t>(2));
    QTest::keyClick(&w.window, Qt::Key_Left, Qt::ControlModifier);
    EXPECT_EQ(player.currentChapter(), std::optional<size_t>(1));
    player.seek(5.0);
    EXPECT_EQ(player.currentChapter(), std::optional<size_t>(2));
    QTest::keyClick(&w.window, Qt::Key_P, Qt::ControlModifier);
    EXPECT_FALSE(player.isPlaying());

    // Playing a track starts at its first chapter.
    player.playTrack(0);
    EXPECT_EQ(player.currentChapter(), std::optional<size_t>(0));
    // Renaming chapters keeps the player where it is.
    w.window.book().renameChapter(0, QStringLiteral("Still Here"));
    EXPECT_TRUE(player.isPlaying());
    player.stop();
}

TEST(WindowControls, EveryControlHasAnAccessibleNameAndTheExportPanelOffersTheSourceRates)
{
    OpenWindow w;
    ASSERT_TRUE(w.ok);
    QStringList unnamed;
    for (QWidget* widget : w.window.findChildren<QWidget*>()) {
        const bool control = qobject_cast<QAbstractButton*>(widget) || qobject_cast<QLineEdit*>(widget)
                             || qobject_cast<QComboBox*>(widget) || qobject_cast<QAbstractItemView*>(widget)
                             || qobject_cast<QSlider*>(widget) || qobject_cast<QAbstractSpinBox*>(widget)
                             || qobject_cast<QPlainTextEdit*>(widget) || qobject_cast<QProgressBar*>(widget);
        // Parts Qt makes inside its own controls (headers and the corner
        // button of a table, the line edit of a spin box, tab scrollers)
        // belong to their named owner.
        if (!control || widget->objectName().startsWith(QStringLiteral("qt_")) || qobject_cast<QHeaderView*>(widget)
            || QByteArray(widget->metaObject()->className()) == "QTableCornerButton"
            || qobject_cast<QAbstractSpinBox*>(widget->parentWidget()) || qobject_cast<QTabBar*>(widget->parentWidget()))
            continue;
        // What assistive technology reads: the accessible name, or for a
        // button with a label, its label.
        QAccessibleInterface* a = QAccessible::queryAccessibleInterface(widget);
        if (!a || a->text(QAccessible::Name).trimmed().isEmpty())
            unnamed << QString::fromLatin1(widget->metaObject()->className()) + u'/' + widget->objectName();
    }
    EXPECT_TRUE(unnamed.isEmpty()) << unnamed.join(u' ').toStdString();

    // 64 kbps mono MP3 sources: "Keep original" names their rate.
    QComboBox* bitrate = w.window.exportPanel()->bitrateBox();
    QStringList items;
    for (int i = 0; i < bitrate->count(); ++i)
        items << bitrate->itemText(i);
    EXPECT_TRUE(items.contains(QStringLiteral("64 kbps (Keep original)"))) << items.join(u'|').toStdString();

    // Presets saved, renamed and deleted through the store.
    ExportPanel* panel = w.window.exportPanel();
    ASSERT_TRUE(panel->savePreset(QStringLiteral("Mine")));
    EXPECT_FALSE(panel->savePreset(QStringLiteral(" mine ")));
    WindowDriver::dismissAlerts(w.window);
    EXPECT_EQ(panel->presetBox()->currentText(), QStringLiteral("Mine"));
    EXPECT_EQ(panel->renameSelectedPreset(QStringLiteral("Ours")).kind, UserPresetStore::RenameResult::Kind::renamed);
    ASSERT_EQ(panel->presetStore().presets().size(), 1u);
    EXPECT_EQ(panel->presetStore().presets().front().name, QStringLiteral("Ours"));
    EXPECT_TRUE(panel->deleteSelectedPreset());
    EXPECT_TRUE(panel->presetStore().presets().empty());
}
