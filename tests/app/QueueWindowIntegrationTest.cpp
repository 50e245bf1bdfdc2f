// The build queue in the window, on library books made from real audio:
// books queued from the library (several at once) and from the book view,
// run to the end and shown completed and built; a destination that fills
// up halts the queue with its banner until the failed build is retried; and
// the job actions (cancel, retry, remove) with each job's attempts and log.
#include "app/book/OpenBook.h"
#include "app/library/LibraryBadge.h"
#include "app/queue/QueueJobModel.h"
#include "app/queue/QueueView.h"
#include "app/queue/QueueWorkspace.h"
#include "app/settings/AppPreferences.h"
#include "app/views/BuildBar.h"
#include "app/views/SettingsDialog.h"
#include "library/LibraryStore.h"
#include "main/LibraryShelf.h"
#include "main/WindowDriver.h"
#include "platform/L10n.h"
#include "queue/run/QueueController.h"
#include "queue/records/QueueHalt.h"
#include "support/Fixtures.h"
#include "support/SmallVolume.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QLineEdit>
#include <QFileInfo>
#include <QAbstractButton>
#include <QLabel>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTableView>
#include <QTableWidget>
#include <QTest>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

using namespace folivox;
using folivox::test::Fixtures;
using folivox::test::Shelf;
using folivox::test::WindowDriver;

namespace {

// The queue's books go to `folder`, each in its author's folder (the books
// have no author, so straight into `folder`).
void sendQueueTo(MainWindow& window, const QString& folder)
{
    AppPreferences p = window.preferences();
    p.defaultOutputFolder = folder;
    p.queueFolderTemplate = QStringLiteral("{author}");
    window.applyPreferences(p);
}

QStringList statuses(QueueView& view)
{
    QStringList out;
    for (int r = 0; r < view.model()->rowCount(); ++r)
        out << view.model()->index(r, QueueJobModel::status).data().toString();
    return out;
}

bool hasBadge(Shelf& s, const QString& title, LibraryBadge::Kind kind)
{
    for (const LibraryBadge& b : s.shown(title).data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>())
        if (b.kind == kind)
            return true;
    return false;
}

bool runEnded(QueueController& c)
{
    return !c.isProcessing() && c.lastRunSummary().has_value();
}

} // namespace

TEST(QueueWindow, TwoBooksQueuedFromTheLibraryBuildAndShowCompletedAndBuilt)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    const QString out = s.dir.filePath(QStringLiteral("out"));
    ASSERT_TRUE(QDir().mkpath(out));
    sendQueueTo(s.window, out);

    // Two books at once, from the library's selection.
    LibraryView* library = s.window.libraryView();
    library->selectBooks({s.id("Dune"), s.id("Emma")});
    QTest::mouseClick(library->queueButton(), Qt::LeftButton);
    QueueView* view = s.window.queueView();
    // The view follows the controller, which hears from the service as the event loop turns.
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return view->model()->rowCount() == 2; }, 5000))
        << (WindowDriver::alerts(s.window).isEmpty() ? std::string() : WindowDriver::alerts(s.window).first()->text().toStdString());
    EXPECT_EQ(statuses(*view), (QStringList{"Pending", "Pending"}));
    EXPECT_TRUE(hasBadge(s, "Dune", LibraryBadge::Kind::queued));
    EXPECT_FALSE(hasBadge(s, "Ulysses", LibraryBadge::Kind::queued));

    s.window.showView(MainWindow::View::queue);
    QueueController& controller = *s.window.queue().controller();
    // While it runs, the running job's row shows its phase and progress as published.
    QStringList phasesSeen;
    bool badgeFollowed = false;
    QObject::connect(&controller, &QueueController::changed, view, [&] {
        for (int r = 0; r < view->model()->rowCount(); ++r) {
            const QueueJob* job = view->model()->jobAt(r);
            if (!job || job->status != QueueJobStatus::running || !job->progressPhase)
                continue;
            const QString shown = view->model()->index(r, QueueJobModel::detail).data().toString();
            if (shown == *job->progressPhase && !phasesSeen.contains(shown))
                phasesSeen << shown;
            for (const LibraryBadge& b : s.shown(job->displayTitle).data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>())
                badgeFollowed = badgeFollowed || (b.kind == LibraryBadge::Kind::building && b.progress == job->progress);
        }
    });
    QTest::mouseClick(view->startButton(), Qt::LeftButton);
    EXPECT_TRUE(controller.isProcessing());
    EXPECT_TRUE(view->stopButton()->isEnabled());
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return runEnded(controller); }, 240000));

    EXPECT_EQ(statuses(*view), (QStringList{"Completed", "Completed"}));
    EXPECT_FALSE(phasesSeen.isEmpty());
    EXPECT_TRUE(badgeFollowed);
    ASSERT_TRUE(view->summaryBanner()->isVisible());
    EXPECT_EQ(view->summaryLabel()->text(), QStringLiteral("The queue has finished: 2 built, 0 failed, 0 skipped, 0 cancelled."));
    const QString dune = QDir(out).filePath(QStringLiteral("Dune.m4b"));
    const QString emma = QDir(out).filePath(QStringLiteral("Emma.m4b"));
    EXPECT_EQ(view->model()->index(0, QueueJobModel::detail).data().toString(), QStringLiteral("Built Dune.m4b"));
    EXPECT_EQ(view->model()->index(0, QueueJobModel::detail).data(Qt::ToolTipRole).toString(), dune);
    EXPECT_NEAR(Fixtures::decodedDuration(dune), 3.0, 0.2);
    EXPECT_NEAR(Fixtures::decodedDuration(emma), 1.0, 0.2);

    // The library knows: both are built, on the record and in their badges.
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return hasBadge(s, "Dune", LibraryBadge::Kind::built) && hasBadge(s, "Emma", LibraryBadge::Kind::built); }, 10000));
    EXPECT_FALSE(hasBadge(s, "Dune", LibraryBadge::Kind::queued));
    EXPECT_FALSE(hasBadge(s, "Ulysses", LibraryBadge::Kind::built));
    const BookStateDTO built = s.window.library().store()->loadState(s.id("Dune"));
    ASSERT_TRUE(built.lastBuild);
    EXPECT_EQ(built.lastBuild->outputs.front().path, dune);
    EXPECT_FALSE(s.window.library().summary(s.id("Dune"))->changedSinceBuild());

    // The attempt, with its log.
    view->selectJob(controller.jobs().front().id);
    ASSERT_EQ(view->attemptList()->rowCount(), 1);
    EXPECT_EQ(view->attemptList()->item(0, 2)->text(), QStringLiteral("Built: ") + dune);
    EXPECT_TRUE(view->logView()->toPlainText().contains(QStringLiteral("✓ success → ") + dune)) << view->logView()->toPlainText().left(400).toStdString();

    QTest::mouseClick(view->summaryBanner()->findChild<QPushButton*>(), Qt::LeftButton);
    EXPECT_FALSE(view->summaryBanner()->isVisible());
    EXPECT_TRUE(controller.runSummarySeen());
}

TEST(QueueWindow, TheBookViewQueuesTheOpenBookAndEachJobCanBeCancelledRetriedAndRemoved)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    const QString out = s.dir.filePath(QStringLiteral("out"));
    ASSERT_TRUE(QDir().mkpath(out));
    sendQueueTo(s.window, out);

    // A book opened from files, queued from the book view: a job that needs no library.
    const QString loose = s.dir.filePath(QStringLiteral("Loose Book"));
    ASSERT_TRUE(WindowDriver::makeBookFolder(loose, 2, 1.0, false));
    s.window.showView(MainWindow::View::book);
    s.window.newBook();
    s.window.openPaths({loose});
    ASSERT_TRUE(WindowDriver::waitForImport(s.window));
    ASSERT_FALSE(s.window.library().openBookID());
    ASSERT_TRUE(s.window.buildBar()->queueButton()->isEnabled());
    QTest::mouseClick(s.window.buildBar()->queueButton(), Qt::LeftButton);
    QueueController& controller = *s.window.queue().controller();
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return controller.jobs().size() == 1; }, 5000));
    EXPECT_TRUE(controller.jobs()[0].origin.candidate.has_value());
    EXPECT_EQ(controller.jobs()[0].plannedOutputPath(), QDir(out).filePath(QStringLiteral("Loose Book.m4b")));

    // A library book opened in the book view is queued as the library's.
    // The book opened from files is let go when asked.
    s.window.showView(MainWindow::View::library);
    s.activate("Ulysses");
    ASSERT_EQ(WindowDriver::alerts(s.window).size(), 1);
    QMessageBox* keep = WindowDriver::alerts(s.window).first();
    EXPECT_EQ(keep->text(), QStringLiteral("“Loose Book” was opened from files and is not in the library. Keep it in the library before "
                                           "opening another book?"));
    for (QAbstractButton* b : keep->buttons())
        if (b->text() == QStringLiteral("Close It and Open"))
            b->click();
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return s.window.library().openBookID() == s.id("Ulysses"); }, 5000));
    EXPECT_EQ(s.window.library().summaries().size(), 3u);
    s.window.addOpenBookToQueue();
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return controller.jobs().size() == 2; }, 5000));
    EXPECT_EQ(controller.jobs()[1].origin.bookID, s.id("Ulysses"));

    QueueView* view = s.window.queueView();
    view->selectJob(controller.jobs()[1].id);
    QTest::mouseClick(view->cancelButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return statuses(*view) == QStringList{"Pending", "Cancelled"}; }, 5000));
    EXPECT_TRUE(view->retryButton()->isEnabled());
    QTest::mouseClick(view->retryButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return statuses(*view) == QStringList{"Pending", "Pending"}; }, 5000));
    const QUuid removed = controller.jobs()[0].id;
    view->selectJob(removed);
    QTest::mouseClick(view->removeButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return view->model()->rowCount() == 1; }, 5000));
    EXPECT_EQ(controller.jobs()[0].origin.bookID, s.id("Ulysses"));
    EXPECT_FALSE(QFileInfo::exists(s.window.queue().store()->jobFolder(removed)));
    // A waiting job can be cancelled, not retried.
    view->selectJob(controller.jobs()[0].id);
    EXPECT_FALSE(view->retryButton()->isEnabled());
    EXPECT_TRUE(view->cancelButton()->isEnabled());

    // The folders of queued books are a setting, checked as it is typed.
    s.window.showSettings();
    SettingsDialog* settings = s.window.findChild<SettingsDialog*>();
    ASSERT_TRUE(settings);
    QPushButton* ok = settings->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok);
    settings->queueTemplateEdit()->setText(QStringLiteral("{author}/{shelf}"));
    EXPECT_FALSE(ok->isEnabled());
    EXPECT_TRUE(settings->queueTemplateExample()->text().startsWith(QStringLiteral("Unknown: {shelf}.")))
        << settings->queueTemplateExample()->text().toStdString();
    settings->queueTemplateEdit()->setText(QStringLiteral("{author}/{series}"));
    EXPECT_EQ(settings->queueTemplateExample()->text(),
              QStringLiteral("For example: Ursula K. Le Guin/Earthsea/A Wizard of Earthsea.m4b"));
    ASSERT_TRUE(ok->isEnabled());
    ok->click();
    EXPECT_EQ(s.window.preferences().queueFolderTemplate, QStringLiteral("{author}/{series}"));
    EXPECT_EQ(AppPreferences::load().queueFolderTemplate, QStringLiteral("{author}/{series}"));
}

TEST(QueueWindow, ADestinationThatFillsUpHaltsTheQueueWithItsBannerUntilTheFailedBuildIsRetried)
{
    Shelf s;
    ASSERT_TRUE(s.ok);
    s.closeAddDialog();
    // Two pages: less than any of the books.
    test::SmallVolume volume(s.dir.filePath(QStringLiteral("small")), "size=8k");
    if (!volume.mounted())
        GTEST_SKIP() << volume.failure().toStdString();
    const QString small = volume.path();
    sendQueueTo(s.window, small);

    LibraryView* library = s.window.libraryView();
    library->selectBooks({s.id("Dune"), s.id("Emma")});
    QTest::mouseClick(library->queueButton(), Qt::LeftButton);
    QueueView* view = s.window.queueView();
    QueueController& controller = *s.window.queue().controller();
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return controller.jobs().size() == 2; }, 5000));
    s.window.showView(MainWindow::View::queue);
    QTest::mouseClick(view->startButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return runEnded(controller); }, 240000));

    // Halted on the first: its message, by its key, in the banner.
    EXPECT_EQ(statuses(*view), (QStringList{"Failed", "Pending"}));
    ASSERT_TRUE(view->haltBanner()->isVisible());
    const QString outOfSpace = L10n::text("queue.halt.outOfSpace",
                                          "The disk ran out of space — the queue is paused. Free up some space, then "
                                          "retry the failed build.");
    EXPECT_EQ(outOfSpace, QueueHalt::text(QueueHalt::Reason::outOfSpace));
    EXPECT_EQ(view->haltLabel()->text(), outOfSpace);
    EXPECT_FALSE(view->startButton()->isEnabled());
    EXPECT_TRUE(view->haltRetryButton()->isEnabled());
    EXPECT_EQ(QDir(small).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
    EXPECT_TRUE(hasBadge(s, "Dune", LibraryBadge::Kind::buildFailed));
    // The failed attempt says why.
    view->selectJob(controller.jobs()[0].id);
    ASSERT_EQ(view->attemptList()->rowCount(), 1);
    EXPECT_TRUE(view->attemptList()->item(0, 2)->text().startsWith(QStringLiteral("Failed (environment)")))
        << view->attemptList()->item(0, 2)->text().toStdString();

    // Room made; the banner's action retries the failed build and clears the halt.
    ASSERT_TRUE(volume.remount("size=8m"));
    QTest::mouseClick(view->haltRetryButton(), Qt::LeftButton);
    EXPECT_FALSE(view->haltBanner()->isVisible());
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return statuses(*view) == QStringList{"Pending", "Pending"}; }, 5000));
    ASSERT_TRUE(view->startButton()->isEnabled());
    QTest::mouseClick(view->startButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !controller.isProcessing() && !statuses(*view).contains(QStringLiteral("Pending")); }, 240000));
    EXPECT_EQ(statuses(*view), (QStringList{"Completed", "Completed"}));
    EXPECT_TRUE(QFileInfo::exists(QDir(small).filePath(QStringLiteral("Dune.m4b"))));
}

TEST(QueueWindow, AJobCutShortByACrashWaitsAsInterruptedUntilResumeBuildsIt)
{
    folivox::test::PrivateHome home;
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("Middlemarch"));
    ASSERT_TRUE(WindowDriver::makeBookFolder(folder, 2, 1.0, false));
    const QString out = dir.filePath(QStringLiteral("out"));
    ASSERT_TRUE(QDir().mkpath(out));
    QUuid book;
    QString queueFile;
    {
        MainWindow first;
        sendQueueTo(first, out);
        first.libraryView()->addFolders({folder});
        ASSERT_TRUE(WindowDriver::waitUntil([&] { return first.libraryView()->addDialog() && first.libraryView()->addDialog()->isFinished(); },
                                            60000));
        book = first.library().summaries().front().id;
        first.addBooksToQueue({book});
        ASSERT_TRUE(WindowDriver::waitUntil([&] { return first.queue().controller()->jobs().size() == 1; }, 5000));
        queueFile = first.queue().store()->queueFileURL();
    }
    // As a crash leaves it: the job saved as running.
    QFile f(queueFile);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    QByteArray text = f.readAll();
    f.close();
    ASSERT_TRUE(text.contains("\"status\": \"pending\""));
    text.replace("\"status\": \"pending\"", "\"status\": \"running\"");
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(text);
    f.close();

    MainWindow second;
    second.show();
    second.showView(MainWindow::View::queue);
    QueueView* view = second.queueView();
    QueueController& controller = *second.queue().controller();
    EXPECT_EQ(statuses(*view), QStringList{"Interrupted"});
    EXPECT_FALSE(view->startButton()->isEnabled()); // nothing pending: an interrupted job waits for Resume
    bool marked = false;
    const QModelIndex shown = second.libraryView()->filter()->mapFromSource(second.libraryView()->model()->indexOf(book));
    for (const LibraryBadge& b : shown.data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>())
        marked = marked || b.kind == LibraryBadge::Kind::interrupted;
    EXPECT_TRUE(marked);
    ASSERT_TRUE(view->resumeButton()->isEnabled());
    QTest::mouseClick(view->resumeButton(), Qt::LeftButton);
    ASSERT_TRUE(WindowDriver::waitUntil([&] { return !controller.isProcessing() && statuses(*view) == QStringList{"Completed"}; }, 120000));
    view->selectJob(controller.jobs().front().id);
    ASSERT_EQ(view->attemptList()->rowCount(), 1);
    EXPECT_TRUE(view->attemptList()->item(0, 2)->text().startsWith(QStringLiteral("Built: ")));
    EXPECT_TRUE(QFileInfo::exists(QDir(out).filePath(QStringLiteral("Middlemarch.m4b"))));
}
