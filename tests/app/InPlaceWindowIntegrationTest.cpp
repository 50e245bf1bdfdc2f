// Updating a built book in place from the window: a library book built in
// the book view gets a new title without a rebuild (read back by ffprobe),
// the reasons show when its chapters no longer fit the file, a cancelled
// update leaves the file as it was, and quitting while the files are
// written (or while the queue builds) asks first, with a default button
// that does not quit.
#include "app/book/OpenBook.h"
#include "app/build/BuildRunner.h"
#include "app/inplace/InPlaceUpdateBar.h"
#include "app/inplace/InPlaceUpdateViewModel.h"
#include "app/library/LibraryBadge.h"
#include "app/queue/QueueJobModel.h"
#include "app/queue/QueueView.h"
#include "app/queue/QueueWorkspace.h"
#include "app/views/DetailsPanel.h"
#include "app/views/ExportPanel.h"
#include "container/io/FaultInjection.h"
#include "library/LibraryStore.h"
#include "main/LibraryShelf.h"
#include "main/WindowDriver.h"
#include "queue/run/QueueController.h"
#include "support/MediaReaders.h"

#include <QDir>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace folivox;
using folivox::test::MediaReaders;
using folivox::test::Shelf;
using folivox::test::WindowDriver;
using State = InPlaceUpdateViewModel::State;

namespace {

QString titleOnDisk(const QString& path)
{
    return MediaReaders::ffprobe(path).value(QStringLiteral("format")).toObject().value(QStringLiteral("tags")).toObject()
        .value(QStringLiteral("title")).toString();
}

void typeInto(QLineEdit* edit, const QString& text)
{
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Delete);
    QTest::keyClicks(edit, text);
}

// Opens Dune from the library and builds it in the book view into `out`;
// gives the built file.
QString openAndBuildDune(Shelf& s, const QString& out)
{
    s.activate("Dune");
    if (s.window.library().openBookID() != s.id("Dune"))
        return {};
    s.window.exportPanel()->setDestinationFolder(out);
    s.window.startBuild();
    if (!WindowDriver::waitUntil([&] { return !s.window.runner().isRunning(); }, 240000))
        return {};
    return QDir(out).filePath(QStringLiteral("Dune.m4b"));
}

// Holds an update at a point inside its write until released.
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
    ~Gate() { open(); }
    bool reached() const { return reached_; }
    void open() { open_ = true; }

private:
    std::atomic<bool> reached_{false};
    std::atomic<bool> open_{false};
    FaultInjection::Scope scope_;
};

QMessageBox* alertTitled(MainWindow& window, const QString& text)
{
    for (QMessageBox* box : WindowDriver::alerts(window))
        if (box->text() == text)
            return box;
    return nullptr;
}

} // namespace

TEST(InPlaceWindow, ABuiltBooksTitleIsWrittenIntoItsFileWithoutARebuild)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    const QString out = s.dir.filePath(QStringLiteral("out"));
    ASSERT_TRUE(QDir().mkpath(out));
    const QString book = openAndBuildDune(s, out);
    ASSERT_TRUE(QFileInfo::exists(book));
    EXPECT_EQ(titleOnDisk(book), QStringLiteral("Dune"));
    InPlaceUpdateBar* bar = s.window.inPlaceBar();
    InPlaceUpdateViewModel& model = s.window.inPlace();
    const QUuid dune = s.id("Dune");

    // Built and unchanged: offered.
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return bar->isVisible() && model.state() == State::eligible; }, 5000));
    EXPECT_EQ(bar->statusLabel()->text(), QStringLiteral("The tags, cover and chapter titles can go into Dune.m4b without a rebuild."));

    // A new title is what an update is for; a moved chapter is not.
    typeInto(s.window.detailsPanel()->lineEdit(QStringLiteral("title")), QStringLiteral("Dune Messiah"));
    ASSERT_EQ(s.window.book().metadata().title, QStringLiteral("Dune Messiah"));
    EXPECT_EQ(model.state(), State::eligible);
    ASSERT_TRUE(s.window.book().setChapterStart(1, s.window.book().chapters()[0].duration + 0.5));
    EXPECT_EQ(model.state(), State::ineligible);
    EXPECT_EQ(model.ineligibilityReasons(), QList<IneligibilityReason>{IneligibilityReason::chapterBoundariesChanged});
    EXPECT_FALSE(bar->updateButton()->isEnabled());
    EXPECT_EQ(bar->statusLabel()->text(),
              QStringLiteral("Update in place isn't possible: A chapter starts or ends at another time. Build the book again."));
    s.window.book().undo();
    ASSERT_EQ(model.state(), State::eligible);
    ASSERT_TRUE(bar->updateButton()->isEnabled());

    // Update in Place: its phases, then the outcome, held a while.
    QStringList phases;
    QObject::connect(&model, &InPlaceUpdateViewModel::changed, bar, [&] {
        if (model.state() == State::running && !phases.contains(bar->statusLabel()->text()))
            phases << bar->statusLabel()->text();
    });
    const qint64 sizeBefore = QFileInfo(book).size();
    QTest::mouseClick(bar->updateButton(), Qt::LeftButton);
    EXPECT_EQ(model.state(), State::running);
    EXPECT_TRUE(bar->progressBar()->isVisible());
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return model.state() != State::running; }, 60000));
    ASSERT_EQ(model.state(), State::finished);
    ASSERT_TRUE(model.outcome());
    EXPECT_EQ(model.outcome()->kind, InPlaceUpdateController::Outcome::Kind::completed);
    EXPECT_TRUE(bar->statusLabel()->text().startsWith(QStringLiteral("Updated Dune.m4b in place."))) << bar->statusLabel()->text().toStdString();
    EXPECT_TRUE(phases.contains(QStringLiteral("Making a backup of the book…"))) << phases.join(u'|').toStdString();
    EXPECT_TRUE(phases.contains(QStringLiteral("Writing the tags…"))) << phases.join(u'|').toStdString();

    // ffprobe reads the new title; the audio is the same length.
    EXPECT_EQ(titleOnDisk(book), QStringLiteral("Dune Messiah"));
    EXPECT_NEAR(MediaReaders::ffprobe(book).value(QStringLiteral("format")).toObject().value(QStringLiteral("duration")).toString().toDouble(),
                3.0, 0.1);
    EXPECT_GT(QFileInfo(book).size(), sizeBefore / 2);

    // The library counts the book as built as it now stands.
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !s.window.library().summary(dune)->changedSinceBuild(); }, 5000));
    const BookStateDTO state = s.window.library().store()->loadState(dune);
    ASSERT_TRUE(state.lastBuild);
    EXPECT_EQ(state.lastBuild->outputs.front().size, quint64(QFileInfo(book).size()));

    // After its hold (4 s) the outcome gives way to the offer again.
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return model.state() == State::eligible; }, 8000));
}

TEST(InPlaceWindow, CancelPutsTheFileBackAndQuittingDuringTheWriteAsksFirst)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    const QString out = s.dir.filePath(QStringLiteral("out"));
    ASSERT_TRUE(QDir().mkpath(out));
    const QString book = openAndBuildDune(s, out);
    ASSERT_TRUE(QFileInfo::exists(book));
    InPlaceUpdateBar* bar = s.window.inPlaceBar();
    InPlaceUpdateViewModel& model = s.window.inPlace();
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return model.state() == State::eligible; }, 5000));
    typeInto(s.window.detailsPanel()->lineEdit(QStringLiteral("title")), QStringLiteral("Never Written"));

    auto gate = std::make_unique<Gate>("inplace.backup.copied");
    QTest::mouseClick(bar->updateButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return gate->reached(); }, 30000));

    // Quitting now asks, with its texts; its default button keeps the window.
    EXPECT_FALSE(s.window.close());
    QMessageBox* warning = alertTitled(s.window, QStringLiteral("Metadata is being written to your original files"));
    ASSERT_TRUE(warning);
    EXPECT_EQ(warning->informativeText(), QStringLiteral("If you quit now, a file may be left corrupted. Let the update finish first."));
    ASSERT_TRUE(warning->defaultButton());
    EXPECT_EQ(warning->defaultButton()->text(), QStringLiteral("Don't Quit"));
    QTest::keyClick(warning, Qt::Key_Return);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return WindowDriver::alerts(s.window).isEmpty(); }, 5000));
    EXPECT_TRUE(s.window.isVisible());
    EXPECT_TRUE(model.isRunning());

    // Cancel: the write stops and the file is put back from its backup.
    ASSERT_TRUE(bar->cancelButton()->isVisible());
    QTest::mouseClick(bar->cancelButton(), Qt::LeftButton);
    gate->open();
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !model.isRunning(); }, 60000));
    ASSERT_TRUE(model.outcome());
    EXPECT_EQ(model.outcome()->kind, InPlaceUpdateController::Outcome::Kind::cancelled);
    EXPECT_EQ(model.state(), State::finished);
    EXPECT_EQ(bar->statusLabel()->text(), QStringLiteral("Cancelled: Dune.m4b is as it was."));
    EXPECT_EQ(titleOnDisk(book), QStringLiteral("Dune"));
    gate.reset();

    // Nothing is written now: the window closes without asking.
    EXPECT_TRUE(s.window.close());
    EXPECT_TRUE(WindowDriver::alerts(s.window).isEmpty());
}

TEST(InPlaceWindow, QuittingWhileTheQueueBuildsAsksFirst)
{
    Shelf s(20.0); // long enough to be building when the window is closed
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    const QString out = s.dir.filePath(QStringLiteral("out"));
    ASSERT_TRUE(QDir().mkpath(out));
    AppPreferences p = s.window.preferences();
    p.defaultOutputFolder = out;
    s.window.applyPreferences(p);
    s.window.libraryView()->selectBooks({s.id("Dune")});
    QTest::mouseClick(s.window.libraryView()->queueButton(), Qt::LeftButton);
    QueueController& controller = *s.window.queue().controller();
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return controller.jobs().size() == 1; }, 5000));
    ASSERT_TRUE(controller.start());
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return s.window.queue().isBuilding(); }, 10000));

    EXPECT_FALSE(s.window.close());
    QMessageBox* warning = alertTitled(s.window, QStringLiteral("A book is being built by the queue"));
    ASSERT_TRUE(warning);
    EXPECT_TRUE(warning->informativeText().startsWith(QStringLiteral("If you quit now, the build in progress stops")));
    ASSERT_TRUE(warning->defaultButton());
    EXPECT_EQ(warning->defaultButton()->text(), QStringLiteral("Don't Quit"));
    QTest::keyClick(warning, Qt::Key_Return);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return WindowDriver::alerts(s.window).isEmpty(); }, 5000));
    EXPECT_TRUE(s.window.isVisible());

    // The running job is cancelled from the queue's view, and counts as cancelled.
    s.window.showView(MainWindow::View::queue);
    QueueView* view = s.window.queueView();
    view->selectJob(controller.jobs()[0].id);
    ASSERT_TRUE(view->cancelButton()->isEnabled());
    QTest::mouseClick(view->cancelButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !controller.isProcessing() && controller.lastRunSummary(); }, 60000));
    EXPECT_EQ(view->model()->index(0, QueueJobModel::status).data().toString(), QStringLiteral("Cancelled"));
    EXPECT_EQ(view->summaryLabel()->text(), QStringLiteral("The queue has finished: 0 built, 0 failed, 0 skipped, 1 cancelled."));
    EXPECT_FALSE(QFileInfo::exists(QDir(out).filePath(QStringLiteral("Dune.m4b"))));
    EXPECT_TRUE(s.window.close());
}
