#include "app/views/MainWindow.h"

#include "app/book/OpenBook.h"
#include "app/book/WorkingStateStore.h"
#include "app/damage/TrackIntegrity.h"
#include "app/inplace/InPlaceUpdateBar.h"
#include "app/inplace/InPlaceUpdateViewModel.h"
#include "app/library/LibraryController.h"
#include "app/library/LibraryView.h"
#include "app/queue/QueueView.h"
#include "app/queue/QueueWorkspace.h"
#include "app/models/ChapterTableModel.h"
#include "app/playback/BookPlayer.h"
#include "app/views/AppIcon.h"
#include "app/views/BatchRenameDialog.h"
#include "app/views/BuildBar.h"
#include "app/views/ChaptersPanel.h"
#include "app/views/DetailsPanel.h"
#include "app/views/ExportPanel.h"
#include "app/views/LogDialog.h"
#include "app/views/PlayerBar.h"
#include "app/views/ResultPanel.h"
#include "app/views/SettingsDialog.h"
#include "app/views/TracksPanel.h"
#include "app/views/Ui.h"
#include "build/BuildFailure.h"
#include "build/BuildOutputPlanner.h"
#include "process/EncoderCatalog.h"
#include "import/ImportCoordinator.h"
#include "library/BookBuildInputs.h"
#include "library/files/LibraryLocation.h"
#include "library/files/LibraryPersistence.h"
#include "platform/AppPaths.h"
#include "platform/Error.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "queue/run/QueueController.h"

#include <QAction>
#include <QActionGroup>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDir>
#include <QDropEvent>
#include <QEventLoop>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QToolBar>
#include <QVBoxLayout>

namespace folivox {

namespace {

QWidget* emptyPage(QWidget* parent, const std::function<void()>& open)
{
    auto* page = new QWidget(parent);
    auto* layout = new QVBoxLayout(page);
    layout->addStretch(2);
    auto* icon = new QLabel(page);
    icon->setPixmap(AppIcon::icon().pixmap(128, 128));
    icon->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon);
    auto* title = new QLabel(L10n::text("app.empty.title", "Drop audio files or a folder here"), page);
    QFont f = title->font();
    f.setPointSizeF(f.pointSizeF() * 1.6);
    f.setBold(true);
    title->setFont(f);
    title->setAlignment(Qt::AlignCenter);
    layout->addWidget(title);
    auto* hint = new QLabel(L10n::text("app.empty.hint",
                                       "MP3, M4A, M4B, FLAC, Ogg, WAV and more. Chapter files (cue, txt, ffmetadata) "
                                       "dropped with the audio are applied."),
                            page);
    hint->setAlignment(Qt::AlignCenter);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(hint);
    auto* button = Ui::named(new QPushButton(L10n::text("app.empty.open", "Choose Files…"), page), "app.empty.open.name",
                             "Choose audio files to open");
    button->setMinimumWidth(180);
    QObject::connect(button, &QPushButton::clicked, page, open);
    layout->addSpacing(12);
    layout->addWidget(button, 0, Qt::AlignCenter);
    layout->addStretch(3);
    return page;
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent)
    , book_(std::make_unique<OpenBook>())
    , library_(new LibraryController(*book_, LibraryLocation::root(), this))
    , queue_(nullptr)
    , inPlace_(new InPlaceUpdateViewModel(*book_, this))
    , integrity_(new TrackIntegrity(*book_, this))
    , runner_(new BuildRunner(this))
    , player_(new BookPlayer(this))
    , workingState_(std::make_unique<WorkingStateStore>())
    , preferences_(AppPreferences::load())
{
    setWindowIcon(AppIcon::icon());
    setAcceptDrops(true);
    resize(1280, 820);
    preferences_.applyToolsFolder();
    queue_ = new QueueWorkspace(*library_, preferences_.parallelJobs, this);

    tracks_ = new TracksPanel(*book_, this);
    tracks_->setIntegrity(integrity_);
    chapters_ = new ChaptersPanel(*book_, this);
    details_ = new DetailsPanel(*book_, this);
    export_ = new ExportPanel(*book_, this);
    result_ = new ResultPanel(this);
    buildBar_ = new BuildBar(this);
    playerBar_ = new PlayerBar(*player_, *book_, this);
    export_->setDestinationFolder(preferences_.defaultOutputFolder);

    auto* left = new QSplitter(Qt::Vertical, this);
    left->addWidget(chapters_);
    left->addWidget(tracks_);
    left->setStretchFactor(0, 3);
    left->setStretchFactor(1, 2);
    tabs_ = Ui::named(new QTabWidget(this), "app.tabs.name", "Book details, export settings and result");
    tabs_->addTab(details_, L10n::text("app.tab.details", "Details"));
    tabs_->addTab(export_, L10n::text("app.tab.export", "Export"));
    tabs_->addTab(result_, L10n::text("app.tab.result", "Result"));
    auto* split = new QSplitter(Qt::Horizontal, this);
    split->addWidget(left);
    split->addWidget(tabs_);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setSizes({720, 560});
    auto* bookPage = new QWidget(this);
    auto* bookLayout = new QVBoxLayout(bookPage);
    bookLayout->setContentsMargins(8, 8, 8, 0);
    bookLayout->addWidget(split, 1);
    bookLayout->addWidget(playerBar_);

    pages_ = new QStackedWidget(this);
    pages_->addWidget(emptyPage(this, [this] { chooseFilesToOpen(false); }));
    pages_->addWidget(bookPage);
    auto* bookArea = new QWidget(this);
    auto* bookAreaLayout = new QVBoxLayout(bookArea);
    bookAreaLayout->setContentsMargins(0, 0, 0, 0);
    bookAreaLayout->setSpacing(0);
    inPlaceBar_ = new InPlaceUpdateBar(*inPlace_, this);
    bookAreaLayout->addWidget(pages_, 1);
    bookAreaLayout->addWidget(inPlaceBar_);
    bookAreaLayout->addWidget(buildBar_);
    libraryView_ = new LibraryView(*library_, this);
    libraryView_->setQueue(queue_->controller());
    queueView_ = new QueueView(*queue_, this);
    views_ = new QStackedWidget(this);
    views_->addWidget(bookArea);
    views_->addWidget(libraryView_);
    views_->addWidget(queueView_);
    setCentralWidget(views_);

    importLabel_ = new QLabel(this);
    importProgress_ = Ui::named(new QProgressBar(this), "app.import.progress.name", "Import progress");
    importProgress_->setMaximumWidth(240);
    importProgress_->hide();
    statusBar()->addWidget(importLabel_, 1);
    statusBar()->addPermanentWidget(importProgress_);

    buildMenus();

    // The book.
    book_->stopPlayer = [this] { player_->stop(); };
    book_->closeEditorWindows = [this] {
        for (const QPointer<QDialog>& d : editorWindows_)
            if (d)
                d->close();
        editorWindows_.clear();
    };
    book_->clearSnapshots = [this] { result_->clear(); };
    book_->clearSelection = [this] {
        chapters_->view()->clearSelection();
        tracks_->view()->clearSelection();
    };
    connect(book_.get(), &OpenBook::alertRaised, this, &MainWindow::showAlert);
    connect(book_.get(), &OpenBook::importStarted, this, [this] {
        importLabel_->setText(L10n::text("app.import.running", "Adding files…"));
        importProgress_->setRange(0, 0);
        importProgress_->show();
        refreshState();
    });
    connect(book_.get(), &OpenBook::importProgress, this, [this](int done, int total) {
        importProgress_->setRange(0, std::max(1, total));
        importProgress_->setValue(done);
        importLabel_->setText(L10n::format(L10n::text("app.import.progress", "Adding files… %d of %d"),
                                           {QString::number(done), QString::number(total)}));
    });
    connect(book_.get(), &OpenBook::importFinished, this, [this] {
        importProgress_->hide();
        importLabel_->setText(book_->isEmpty() ? QString()
                                               : L10n::format(L10n::text("app.import.done", "%d tracks, %d chapters"),
                                                              {QString::number(book_->tracks().size()),
                                                               QString::number(book_->chapters().size())}));
        refreshState();
    });
    const auto bookChanged = [this] {
        player_->setBook(book_->tracks(), book_->chapters());
        refreshState();
    };
    connect(book_.get(), &OpenBook::tracksChanged, this, bookChanged);
    connect(book_.get(), &OpenBook::chaptersChanged, this, bookChanged);
    connect(book_.get(), &OpenBook::metadataChanged, this, &MainWindow::refreshState);
    connect(book_.get(), &OpenBook::undoStateChanged, this, &MainWindow::refreshState);

    connect(tracks_, &TracksPanel::playTrackRequested, this, [this](int row) { player_->playTrack(static_cast<size_t>(row)); });
    connect(chapters_, &ChaptersPanel::playChapterRequested, this,
            [this](int row) { player_->playChapter(static_cast<size_t>(row)); });
    connect(chapters_, &ChaptersPanel::batchRenameRequested, this, &MainWindow::showBatchRename);
    connect(chapters_, &ChaptersPanel::chapterFileRequested, this, &MainWindow::chooseChapterFile);
    connect(player_, &BookPlayer::currentChapterChanged, chapters_->model(), &ChapterTableModel::setCurrentChapter);
    connect(details_, &DetailsPanel::problem, this,
            [this](const QString& text) { showAlert(L10n::text("app.cover.problem.title", "Cover not used"), text); });
    connect(export_, &ExportPanel::problem, this,
            [this](const QString& text) { showAlert(L10n::text("app.export.problem.title", "Preset not saved"), text); });

    // The library.
    connect(libraryView_, &LibraryView::openRequested, this, &MainWindow::openLibraryBook);
    connect(libraryView_, &LibraryView::addToQueueRequested, this, &MainWindow::addBooksToQueue);
    if (QueueController* queue = queue_->controller()) {
        connect(queue, &QueueController::changed, this, &MainWindow::refreshQueueAction);
        connect(queue, &QueueController::halted, this, [this](const QString& message) {
            statusBar()->showMessage(message, 15000);
        });
        library_->coordinator()->isSingleExportActive = [this] { return runner_->isRunning(); };
    }
    connect(buildBar_, &BuildBar::addToQueueRequested, this, &MainWindow::addOpenBookToQueue);
    connect(inPlace_, &InPlaceUpdateViewModel::changed, this, &MainWindow::refreshState);
    connect(inPlace_, &InPlaceUpdateViewModel::finished, this, &MainWindow::inPlaceFinished);
    connect(inPlaceBar_, &InPlaceUpdateBar::updateRequested, this, &MainWindow::updateInPlace);

    // Damaged sources: clean copies are kept with a library book, or in the
    // application's folder for a book opened from files.
    integrity_->repairFolder = [this](const Track&) {
        if (const auto id = library_->openBookID(); id && library_->persistence())
            return library_->persistence()->bookFolder(*id) + QStringLiteral("/sources");
        return QDir(AppPaths::appSupportDir()).filePath(QStringLiteral("Repaired/") + book_->id().toString(QUuid::Id128));
    };
    connect(integrity_, &TrackIntegrity::repairFinished, this, &MainWindow::offerRepairedCopies);
    connect(library_, &LibraryController::openBookChanged, this, &MainWindow::refreshState);
    connect(book_.get(), &OpenBook::lastBuildChanged, this, &MainWindow::refreshState);

    // Building.
    connect(buildBar_, &BuildBar::buildRequested, this, &MainWindow::startBuild);
    connect(buildBar_, &BuildBar::cancelRequested, this, &MainWindow::cancelBuild);
    connect(runner_, &BuildRunner::progressed, buildBar_, &BuildBar::showRunning);
    connect(runner_, &BuildRunner::progressed, this, [this](const QString&, double fraction) {
        if (QueueController* queue = queue_->controller())
            queue->setSingleExport(true, fraction);
    });
    const auto singleExportEnded = [this] {
        if (QueueController* queue = queue_->controller())
            queue->setSingleExport(false);
    };
    connect(runner_, &BuildRunner::finished, this, singleExportEnded);
    connect(runner_, &BuildRunner::failed, this, singleExportEnded);
    connect(runner_, &BuildRunner::cancelled, this, singleExportEnded);
    connect(runner_, &BuildRunner::finished, this, [this](const BuildResult& r) {
        buildBar_->showIdle(L10n::format(L10n::text("app.build.done", "Built %@"), {QFileInfo(r.outcome.outputPath).fileName()}));
        result_->showResult(r);
        tabs_->setCurrentIndex(resultTab);
        recordBuild(r);
        refreshState();
        Q_EMIT buildEnded();
    });
    connect(runner_, &BuildRunner::failed, this, [this](const BuildRunner::Failure& f) {
        buildBar_->showIdle(L10n::text("app.build.failed", "The build failed."));
        result_->showFailure(f.message, f.logFile);
        tabs_->setCurrentIndex(resultTab);
        showAlert(L10n::text("app.build.failed.title", "The book could not be built"), f.message);
        buildToken_.reset();
        refreshState();
        Q_EMIT buildEnded();
    });
    connect(runner_, &BuildRunner::cancelled, this, [this] {
        buildToken_.reset();
        buildBar_->showIdle(L10n::text("app.build.cancelled", "Build cancelled; nothing was written."));
        refreshState();
        Q_EMIT buildEnded();
    });
    connect(result_, &ResultPanel::showLogRequested, this, &MainWindow::showBuildLog);

    // Whether HE-AAC can be offered depends on the installed ffmpeg; asking
    // it runs a child process, so it happens off the main thread.
    encoderProbe_ = std::thread([this] {
        const bool heAAC = EncoderCatalog::system().heAAC().has_value();
        QMetaObject::invokeMethod(this, [this, heAAC] { export_->setHeAACAvailable(heAAC); }, Qt::QueuedConnection);
    });

    export_->choosePreset(preferences_.defaultPreset);
    refreshState();
}

MainWindow::~MainWindow()
{
    if (encoderProbe_.joinable())
        encoderProbe_.join();
    runner_->cancel();
    book_->cancelImport();
    // An update in place is cancelled (its files put back), the queue stops
    // its run, and the library writes the open book as it closes: all go
    // before the book they read from (child objects would go after).
    delete inPlaceBar_;
    delete inPlace_;
    delete integrity_;
    delete queueView_;
    delete queue_;
    delete libraryView_;
    delete library_;
}

void MainWindow::buildMenus()
{
    auto* file = menuBar()->addMenu(L10n::text("app.menu.file", "&File"));
    auto* open = file->addAction(L10n::text("app.action.open", "&Open Files…"), this, [this] { chooseFilesToOpen(false); });
    open->setShortcut(QKeySequence::Open);
    auto* openFolder =
        file->addAction(L10n::text("app.action.openFolder", "Open &Folder…"), this, [this] { chooseFilesToOpen(true); });
    openFolder->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    auto* newBook = file->addAction(L10n::text("app.action.new", "&New Book"), this, &MainWindow::newBook);
    newBook->setShortcut(QKeySequence::New);
    file->addAction(L10n::text("app.action.chapterFile", "Apply &Chapter File…"), this, &MainWindow::chooseChapterFile);
    file->addSeparator();
    auto* addFolders = file->addAction(L10n::text("app.action.addToLibrary", "&Add Folders to Library…"), this, [this] {
        showView(View::library);
        libraryView_->chooseFoldersToAdd();
    });
    keepInLibrary_ = file->addAction(L10n::text("app.action.keepInLibrary", "&Keep Book in Library"), this,
                                     &MainWindow::keepOpenBookInLibrary);
    file->addSeparator();
    auto* settings = file->addAction(L10n::text("app.action.settings", "&Settings…"), this, &MainWindow::showSettings);
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    file->addSeparator();
    auto* quit = file->addAction(L10n::text("app.action.quit", "&Quit"), this, &QWidget::close);
    quit->setShortcut(QKeySequence::Quit);

    auto* edit = menuBar()->addMenu(L10n::text("app.menu.edit", "&Edit"));
    undo_ = edit->addAction(L10n::text("app.action.undo", "&Undo"), this, [this] { book_->undo(); });
    undo_->setShortcut(QKeySequence::Undo);
    redo_ = edit->addAction(L10n::text("app.action.redo", "&Redo"), this, [this] { book_->redo(); });
    redo_->setShortcuts({QKeySequence::Redo, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)});
    edit->addSeparator();
    batchRename_ = edit->addAction(L10n::text("app.action.batchRename", "&Batch Rename Chapters…"), this,
                                   &MainWindow::showBatchRename);
    batchRename_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));

    auto* view = menuBar()->addMenu(L10n::text("app.menu.view", "&View"));
    viewActions_ = new QActionGroup(this);
    showLibrary_ = view->addAction(L10n::text("app.action.showLibrary", "&Library"), this, [this] { showView(View::library); });
    showLibrary_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_1));
    showBook_ = view->addAction(L10n::text("app.action.showBook", "&Book"), this, [this] { showView(View::book); });
    showBook_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_2));
    showQueue_ = view->addAction(L10n::text("app.action.showQueue", "&Queue"), this, [this] { showView(View::queue); });
    showQueue_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_3));
    for (QAction* a : {showLibrary_, showBook_, showQueue_}) {
        a->setCheckable(true);
        viewActions_->addAction(a);
    }
    showBook_->setChecked(true);

    auto* buildMenu = menuBar()->addMenu(L10n::text("app.menu.build", "&Build"));
    build_ = buildMenu->addAction(L10n::text("app.action.build", "&Build Audiobook"), this, &MainWindow::startBuild);
    build_->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_B));
    cancel_ = buildMenu->addAction(L10n::text("app.action.cancelBuild", "&Cancel Build"), this, &MainWindow::cancelBuild);
    cancel_->setShortcut(QKeySequence(Qt::Key_Escape));
    addToQueue_ = buildMenu->addAction(L10n::text("app.action.addToQueue", "Add to &Queue"), this, &MainWindow::addOpenBookToQueue);
    addToQueue_->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_B));
    updateInPlace_ = buildMenu->addAction(L10n::text("app.action.updateInPlace", "&Update in Place"), this, &MainWindow::updateInPlace);
    updateInPlace_->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_U));
    auto* log = buildMenu->addAction(L10n::text("app.action.showLog", "Show Build &Log"), this, &MainWindow::showBuildLog);
    log->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_L));

    auto* play = menuBar()->addMenu(L10n::text("app.menu.playback", "&Playback"));
    auto* toggle = play->addAction(L10n::text("app.action.play", "&Play / Pause"), player_, &BookPlayer::togglePlayPause);
    toggle->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_P));
    auto* next = play->addAction(L10n::text("app.action.nextChapter", "&Next Chapter"), player_, &BookPlayer::nextChapter);
    next->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Right));
    auto* previous =
        play->addAction(L10n::text("app.action.previousChapter", "P&revious Chapter"), player_, &BookPlayer::previousChapter);
    previous->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Left));

    auto* bar = addToolBar(L10n::text("app.toolbar", "Main"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->addAction(showLibrary_);
    bar->addAction(showBook_);
    bar->addAction(showQueue_);
    bar->addSeparator();
    for (QAction* a : {open, newBook})
        bar->addAction(a);
    Q_UNUSED(addFolders);
    bar->addSeparator();
    bar->addAction(undo_);
    bar->addAction(redo_);
    bar->addAction(batchRename_);
    bar->addSeparator();
    bar->addAction(settings);
}

void MainWindow::refreshState()
{
    const bool hasBook = !book_->isEmpty();
    pages_->setCurrentIndex(hasBook || book_->isImporting() ? 1 : 0);
    const QString title = book_->metadata().title;
    setWindowTitle(title.isEmpty() ? QStringLiteral("Folivox") : title + QStringLiteral(" — Folivox"));
    undo_->setEnabled(book_->canUndo());
    undo_->setText(book_->canUndo() ? L10n::format(L10n::text("app.action.undoNamed", "&Undo %@"), {book_->undoName()})
                                    : L10n::text("app.action.undo", "&Undo"));
    redo_->setEnabled(book_->canRedo());
    batchRename_->setEnabled(hasBook && !book_->chapters().empty());
    keepInLibrary_->setEnabled(library_->isAvailable() && hasBook && !book_->isImporting() && !library_->openBookID());
    const bool canBuild = hasBook && !book_->isImporting() && !book_->chapters().empty() && !runner_->isRunning()
                          && !inPlace_->isRunning();
    updateInPlace_->setEnabled(inPlace_->state() == InPlaceUpdateViewModel::State::eligible && !runner_->isRunning());
    inPlaceBar_->setBlocked(runner_->isRunning());
    build_->setEnabled(canBuild);
    const bool canQueue = queue_->isAvailable() && hasBook && !book_->isImporting() && !book_->chapters().empty();
    addToQueue_->setEnabled(canQueue);
    buildBar_->setQueueEnabled(canQueue);
    cancel_->setEnabled(runner_->isRunning());
    buildBar_->setBuildEnabled(canBuild);
}

QList<QMessageBox*> MainWindow::openAlerts() const
{
    QList<QMessageBox*> open;
    for (const QPointer<QMessageBox>& box : alerts_)
        if (box && box->isVisible())
            open << box;
    return open;
}

void MainWindow::showAlert(const QString& title, const QString& message)
{
    Log::write(QStringLiteral("[App] alert: ") + title);
    auto* box = new QMessageBox(QMessageBox::Warning, title, message, QMessageBox::NoButton, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    auto* ok = box->addButton(L10n::text(ImportAlert::buttonKey(), "OK"), QMessageBox::AcceptRole);
    ok->setAccessibleName(L10n::text("app.alert.ok.name", "Close this message"));
    box->setDefaultButton(ok);
    box->setWindowModality(Qt::WindowModal);
    alerts_.removeAll(nullptr);
    alerts_ << box;
    box->open();
}

// ---- Opening --------------------------------------------------------------

void MainWindow::openPaths(const QStringList& paths)
{
    if (paths.isEmpty())
        return;
    pages_->setCurrentIndex(1);
    book_->importPaths(paths);
}

void MainWindow::chooseFilesToOpen(bool folder)
{
    auto* dialog = new QFileDialog(this, folder ? L10n::text("app.open.folderTitle", "Open a Folder of Audio")
                                                : L10n::text("app.open.title", "Open Audio Files"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    if (folder) {
        dialog->setFileMode(QFileDialog::Directory);
        dialog->setOption(QFileDialog::ShowDirsOnly);
    } else {
        dialog->setFileMode(QFileDialog::ExistingFiles);
        QStringList patterns;
        for (const QString& ext : ImportCoordinator::audioExtensions() + ImportCoordinator::sidecarExtensions())
            patterns << QStringLiteral("*.") + ext;
        dialog->setNameFilters({L10n::text("app.open.filter", "Audio and chapter files") + QStringLiteral(" (")
                                    + patterns.join(QLatin1Char(' ')) + QLatin1Char(')'),
                                L10n::text("app.open.filterAll", "All files (*)")});
    }
    connect(dialog, &QFileDialog::filesSelected, this, &MainWindow::openPaths);
    dialog->open();
}

void MainWindow::chooseChapterFile()
{
    auto* dialog = new QFileDialog(this, L10n::text("app.chapterFile.dialog", "Apply a Chapter File"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) {
        const QString error = book_->applyChapterFile(path);
        if (!error.isEmpty())
            showAlert(L10n::text("app.chapterFile.failed.title", "Chapter file not used"), error);
    });
    dialog->open();
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event)
{
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls())
        if (url.isLocalFile())
            paths << url.toLocalFile();
    if (paths.isEmpty())
        return;
    event->acceptProposedAction();
    openPaths(paths);
}

void MainWindow::newBook()
{
    if (const QString busy = busyWithOpenBook(); !busy.isEmpty()) {
        showAlert(L10n::text("app.library.close.busy.title", "The book can't be closed now"), busy);
        return;
    }
    if (library_->openBookID()) {
        if (!library_->closeOpenBook(BookSession::TearDownReason::newBook())) {
            const auto op = library_->coordinator()->exclusiveOperation();
            showAlert(L10n::text("app.library.close.busy.title", "The book can't be closed now"),
                      op ? LibraryController::operationText(*op) : QString());
            return;
        }
    } else {
        book_->newBook();
    }
    export_->choosePreset(preferences_.defaultPreset);
    buildBar_->showIdle(QString());
    importLabel_->clear();
    refreshState();
}

// ---- Editing --------------------------------------------------------------

void MainWindow::showBatchRename()
{
    if (book_->chapters().empty())
        return;
    QStringList titles;
    for (const Bookmark& b : book_->chapters())
        titles << b.title;
    auto* dialog = new BatchRenameDialog(titles, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &BatchRenameDialog::titlesChosen, this, [this](const QStringList& renamed) {
        book_->setChapterTitles(renamed, L10n::text("app.undo.batchRename", "Batch Rename"));
    });
    renameDialog_ = dialog;
    editorWindows_.removeAll(nullptr);
    editorWindows_ << dialog;
    dialog->open();
}

void MainWindow::showSettings()
{
    auto* dialog = new SettingsDialog(preferences_, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &SettingsDialog::preferencesChosen, this, &MainWindow::applyPreferences);
    dialog->open();
}

void MainWindow::applyPreferences(const AppPreferences& preferences)
{
    const bool folderChanged = preferences.defaultOutputFolder != preferences_.defaultOutputFolder;
    preferences_ = preferences;
    preferences_.save();
    preferences_.applyToolsFolder();
    if (folderChanged)
        export_->setDestinationFolder(preferences_.defaultOutputFolder);
}

void MainWindow::showBuildLog()
{
    const QString log = result_->logFile();
    if (log.isEmpty())
        return;
    auto* dialog = new LogDialog(log, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    editorWindows_.removeAll(nullptr);
    editorWindows_ << dialog;
    dialog->show();
}

// ---- Building -------------------------------------------------------------

void MainWindow::startBuild()
{
    if (runner_->isRunning() || book_->isEmpty() || book_->isImporting())
        return;
    const QString output = export_->outputPath();
    try {
        BuildOutputPlanner::check(output, book_->settings().outputFormat);
        BuildOutputPlanner::checkReplace(output, book_->settings().outputFormat, false);
    } catch (const BuildFailure& f) {
        if (QFileInfo::exists(output) && f.file() == output) {
            askToReplace(output);
            return;
        }
        showAlert(L10n::text("app.build.failed.title", "The book could not be built"), f.message());
        return;
    }
    runBuild(false);
}

void MainWindow::askToReplace(const QString& output)
{
    auto* box = new QMessageBox(QMessageBox::Question, L10n::text("app.build.replace.title", "Replace the existing book?"),
                                L10n::format(L10n::text("app.build.replace.message",
                                                        "%@ already exists. Building replaces it once the new book is "
                                                        "complete."),
                                             {output}),
                                QMessageBox::NoButton, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    auto* replace = box->addButton(L10n::text("app.build.replace.button", "Replace"), QMessageBox::AcceptRole);
    replace->setAccessibleName(L10n::text("app.build.replace.name", "Replace the existing book"));
    auto* keep = box->addButton(L10n::text("app.build.replace.cancel", "Cancel"), QMessageBox::RejectRole);
    keep->setAccessibleName(L10n::text("app.build.replace.cancel.name", "Keep the existing book"));
    box->setDefaultButton(keep);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::buttonClicked, this, [this, replace](QAbstractButton* b) {
        if (b == replace)
            runBuild(true);
    });
    alerts_.removeAll(nullptr);
    alerts_ << box;
    box->open();
}

void MainWindow::runBuild(bool replaceExisting)
{
    BuildRequest request;
    request.book = book_->importedBook();
    request.settings = book_->settings();
    request.output = export_->outputPath();
    request.parallelJobs = preferences_.parallelJobs;
    request.replaceExisting = replaceExisting;
    if (library_->openBookID())
        library_->saveOpenBook();
    const auto token = library_->coordinator() ? library_->coordinator()->buildStartToken() : std::nullopt;
    if (!runner_->start(request))
        return;
    buildToken_ = token;
    buildInputs_ = BookBuildInputs::from(book_->state());
    buildInputs_.settings = request.settings;
    if (QueueController* queue = queue_->controller())
        queue->setSingleExport(true, 0.0);
    buildBar_->showRunning(runner_->phase(), 0);
    refreshState();
}

void MainWindow::cancelBuild()
{
    if (!runner_->isRunning())
        return;
    runner_->cancel();
    buildBar_->showRunning(L10n::text("app.build.cancelling", "Cancelling…"), runner_->fraction());
    buildBar_->cancelButton()->setEnabled(false);
}

// ---- Working state --------------------------------------------------------

void MainWindow::restoreWorkingState()
{
    const WorkingStateStore::Loaded loaded = workingState_->load();
    if (loaded.state && library_->summary(loaded.state->id)) {
        // A library book: the library's record is the book.
        const ActiveBookCoordinator::SwitchResult r = switchToLibraryBook(loaded.state->id);
        if (r.kind == ActiveBookCoordinator::SwitchResult::Kind::switched)
            return;
    }
    if (loaded.state) {
        book_->restore(*loaded.state);
        refreshState();
        return;
    }
    if (!loaded.problem.isEmpty())
        showAlert(L10n::text("app.workingState.damaged.title", "The last book could not be reopened"),
                  L10n::format(L10n::text("app.workingState.damaged.message",
                                          "The saved state of the last book is damaged (%@). It was set aside as %@ "
                                          "and Folivox starts with an empty window."),
                               {loaded.problem, loaded.setAsidePath}));
}

void MainWindow::saveWorkingState()
{
    try {
        if (book_->isEmpty())
            workingState_->clear();
        else
            workingState_->save(book_->state());
    } catch (const Error& e) {
        Log::write(QStringLiteral("[App] ") + e.description());
    }
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    // Quitting in the middle of a write asks first; its default button stays.
    if (!quitConfirmed_ && inPlace_->isRunning()) {
        event->ignore();
        askBeforeQuit(InPlaceUpdateController::quitWarningTitle(), InPlaceUpdateController::quitWarningConsequence());
        return;
    }
    if (!quitConfirmed_ && queue_->isBuilding()) {
        event->ignore();
        askBeforeQuit(L10n::text("app.queue.quit.title", "A book is being built by the queue"),
                      L10n::text("app.queue.quit.consequence",
                                 "If you quit now, the build in progress stops and nothing of it is kept; its job is "
                                 "marked cancelled, and Retry builds it again."));
        return;
    }
    quitConfirmed_ = false;
    if (runner_->isRunning()) {
        runner_->cancel();
        QEventLoop wait;
        connect(this, &MainWindow::buildEnded, &wait, &QEventLoop::quit);
        wait.exec();
    }
    book_->cancelImport();
    player_->stop();
    library_->saveOpenBook();
    saveWorkingState();
    event->accept();
}

void MainWindow::askBeforeQuit(const QString& title, const QString& consequence)
{
    for (QMessageBox* open : openAlerts())
        if (open->text() == title)
            return; // asked already
    auto* box = new QMessageBox(QMessageBox::Warning, title, title, QMessageBox::NoButton, this);
    box->setInformativeText(consequence);
    box->setAttribute(Qt::WA_DeleteOnClose);
    auto* stay = box->addButton(InPlaceUpdateController::quitWarningCancelButton(), QMessageBox::RejectRole);
    stay->setAccessibleName(L10n::text("app.quit.stay.name", "Keep Folivox open"));
    auto* quit = box->addButton(L10n::text("app.quit.anyway", "Quit Anyway"), QMessageBox::DestructiveRole);
    quit->setAccessibleName(L10n::text("app.quit.anyway.name", "Quit now and stop the work"));
    box->setDefaultButton(stay);
    box->setEscapeButton(stay);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::buttonClicked, this, [this, quit](QAbstractButton* b) {
        if (b != quit)
            return;
        quitConfirmed_ = true;
        QMetaObject::invokeMethod(this, &QWidget::close, Qt::QueuedConnection);
    });
    alerts_.removeAll(nullptr);
    alerts_ << box;
    box->open();
}

// ---- Update in place -------------------------------------------------------

QString MainWindow::busyWithOpenBook() const
{
    if (runner_->isRunning())
        return L10n::text("app.book.busy.building", "The open book is being built. Wait for the build, or cancel it.");
    if (inPlace_->isRunning())
        return L10n::text("app.book.busy.inplace", "The open book's files are being updated in place. Wait for the update, or cancel it.");
    return {};
}

void MainWindow::updateInPlace()
{
    if (runner_->isRunning() || inPlace_->state() != InPlaceUpdateViewModel::State::eligible)
        return;
    // The library's record is on disk, and the revision written is noted.
    if (library_->openBookID())
        library_->saveOpenBook();
    const auto token = library_->coordinator() ? library_->coordinator()->buildStartToken() : std::nullopt;
    if (!inPlace_->start())
        return;
    inPlaceToken_ = token;
    refreshState();
}

void MainWindow::inPlaceFinished()
{
    const auto& outcome = inPlace_->outcome();
    const auto token = inPlaceToken_;
    inPlaceToken_.reset();
    if (!outcome)
        return;
    if (outcome->kind == InPlaceUpdateController::Outcome::Kind::failed) {
        showAlert(L10n::text("app.inplace.failed.title", "The book could not be updated in place"), inPlace_->outcomeText());
        return;
    }
    if (outcome->kind != InPlaceUpdateController::Outcome::Kind::completed || !book_->lastBuild())
        return;
    // The files now hold the book as it was when the update started: the
    // last build's record is renewed with their sizes and dates.
    BuildRecord record = *book_->lastBuild();
    record.builtAt = outcome->writeFinishedAt.isValid() ? outcome->writeFinishedAt : QDateTime::currentDateTimeUtc();
    for (BuildRecord::Output& out : record.outputs) {
        const QFileInfo info(out.path);
        out.size = info.exists() ? static_cast<quint64>(info.size()) : 0;
        out.modifiedAt = info.lastModified().toUTC();
    }
    if (token && library_->summary(token->bookID)) {
        library_->recordBuild(token->bookID, token->revision, record);
    } else {
        record.revision = book_->state().revision;
        book_->setLastBuild(record);
    }
}

// ---- Damaged sources ------------------------------------------------------

void MainWindow::offerRepairedCopies(const QMap<QUuid, QUrl>& copies, const QStringList& failures)
{
    if (!failures.isEmpty())
        showAlert(L10n::text("app.damage.repair.failed.title", "Not every file could be repaired"),
                  L10n::format(L10n::text("app.damage.repair.failed", "No clean copy could be made of:\n%@"),
                               {failures.join(u'\n')}));
    if (copies.isEmpty())
        return;
    QStringList names;
    for (const Track& t : book_->tracks())
        if (copies.contains(t.id))
            names << QFileInfo(t.url.toLocalFile()).fileName();
    auto* box = new QMessageBox(QMessageBox::Question, L10n::text("app.damage.use.title", "Build from the repaired copies?"),
                                L10n::format(L10n::text("app.damage.use.message",
                                                        "Clean copies of %d damaged file(s) were made:\n%@\n\nUse them in the "
                                                        "book in place of the damaged files? The damaged files are not changed, "
                                                        "and Undo brings them back."),
                                             {QString::number(copies.size()), names.join(u'\n')}),
                                QMessageBox::NoButton, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    auto* use = box->addButton(L10n::text("app.damage.use.button", "Use Repaired Copies"), QMessageBox::AcceptRole);
    auto* keep = box->addButton(L10n::text("app.damage.use.keep", "Keep the Damaged Files"), QMessageBox::RejectRole);
    use->setAccessibleName(L10n::text("app.damage.use.name", "Build from the repaired copies"));
    keep->setAccessibleName(L10n::text("app.damage.keep.name", "Keep building from the damaged files"));
    box->setDefaultButton(use);
    box->setWindowModality(Qt::WindowModal);
    const QUuid book = book_->id();
    connect(box, &QMessageBox::buttonClicked, this, [this, use, copies, book](QAbstractButton* b) {
        if (b == use && book_->id() == book) {
            book_->replaceTrackFiles(copies, L10n::text("app.undo.useRepaired", "Use Repaired Copies"));
            return;
        }
        // Not used: nothing else leads to them, so they don't stay behind.
        for (const QUrl& copy : copies)
            QFile::remove(copy.toLocalFile());
    });
    alerts_.removeAll(nullptr);
    alerts_ << box;
    box->open();
}

// ---- Library ----------------------------------------------------------------

void MainWindow::showView(View view)
{
    switch (view) {
    case View::book:
        views_->setCurrentIndex(0);
        showBook_->setChecked(true);
        break;
    case View::library:
        views_->setCurrentIndex(1);
        showLibrary_->setChecked(true);
        break;
    case View::queue:
        views_->setCurrentIndex(2);
        showQueue_->setChecked(true);
        break;
    }
}

MainWindow::View MainWindow::currentView() const
{
    if (views_->currentWidget() == libraryView_)
        return View::library;
    return views_->currentWidget() == queueView_ ? View::queue : View::book;
}

void MainWindow::refreshQueueAction()
{
    QueueController* queue = queue_->controller();
    if (!queue)
        return;
    int waiting = 0;
    for (const QueueJob& job : queue->jobs())
        if (job.status == QueueJobStatus::pending || job.status == QueueJobStatus::running)
            ++waiting;
    showQueue_->setText(waiting == 0 ? L10n::text("app.action.showQueue", "&Queue")
                                     : L10n::format(L10n::text("app.action.showQueueCount", "&Queue (%d)"), {QString::number(waiting)}));
    if (queue->haltMessage())
        showQueue_->setText(L10n::text("app.action.showQueueHalted", "&Queue (paused)"));
}

void MainWindow::addBooksToQueue(const QList<QUuid>& ids)
{
    if (!queue_->isAvailable()) {
        showAlert(L10n::text("app.queue.unavailable.title", "The queue can't be used"), queue_->unavailableReason());
        return;
    }
    const QueueWorkspace::Destination destination{preferences_.defaultOutputFolder, OutputOrganization{preferences_.queueFolderTemplate}};
    const QueueWorkspace::Queued queued = queue_->enqueueBooks(ids, destination, false);
    const QList<QUuid> existing = queued.existing;
    reportQueued(queued.jobs, queued.problems, int(existing.size()), [this, existing, destination] {
        const QueueWorkspace::Queued again = queue_->enqueueBooks(existing, destination, true);
        reportQueued(again.jobs, again.problems, 0, {});
    });
}

void MainWindow::addOpenBookToQueue()
{
    if (book_->isEmpty() || book_->isImporting())
        return;
    if (const auto id = library_->openBookID()) {
        addBooksToQueue({*id});
        return;
    }
    if (!queue_->isAvailable()) {
        showAlert(L10n::text("app.queue.unavailable.title", "The queue can't be used"), queue_->unavailableReason());
        return;
    }
    const QueueWorkspace::Destination destination{preferences_.defaultOutputFolder, OutputOrganization{preferences_.queueFolderTemplate}};
    QStringList inputs;
    for (const QUrl& url : book_->state().sources)
        inputs << url.toLocalFile();
    const ImportedBook book = book_->importedBook();
    const ExportSettings settings = book_->settings();
    const QueueWorkspace::Queued queued = queue_->enqueueBook(book, inputs, settings, destination, false);
    reportQueued(queued.jobs, queued.problems, int(queued.existing.size()), [this, book, inputs, settings, destination] {
        const QueueWorkspace::Queued again = queue_->enqueueBook(book, inputs, settings, destination, true);
        reportQueued(again.jobs, again.problems, 0, {});
    });
}

void MainWindow::reportQueued(const QList<QUuid>& jobs, const QStringList& problems, int existing,
                              const std::function<void()>& replace)
{
    if (!jobs.isEmpty()) {
        statusBar()->showMessage(L10n::format(L10n::text("app.queue.added", "%d book(s) added to the queue."),
                                              {QString::number(jobs.size())}),
                                 8000);
        queueView_->selectJob(jobs.last());
    }
    if (!problems.isEmpty())
        showAlert(L10n::text("app.queue.add.failed.title", "Not everything could be queued"), problems.join(u'\n'));
    if (existing > 0 && replace) {
        auto* box = new QMessageBox(QMessageBox::Question, L10n::text("app.queue.replace.title", "Replace the books already there?"),
                                    L10n::format(L10n::text("app.queue.replace.message",
                                                            "%d book(s) are already in the output folder. Queue them to be "
                                                            "built again, replacing what is there?"),
                                                 {QString::number(existing)}),
                                    QMessageBox::NoButton, this);
        box->setAttribute(Qt::WA_DeleteOnClose);
        auto* yes = box->addButton(L10n::text("app.queue.replace.button", "Queue and Replace"), QMessageBox::AcceptRole);
        auto* no = box->addButton(L10n::text("app.queue.replace.cancel", "Don't Queue"), QMessageBox::RejectRole);
        box->setDefaultButton(no);
        box->setWindowModality(Qt::WindowModal);
        connect(box, &QMessageBox::buttonClicked, this, [yes, replace](QAbstractButton* b) {
            if (b == yes)
                replace();
        });
        alerts_.removeAll(nullptr);
        alerts_ << box;
        box->open();
    }
}

void MainWindow::openLibraryBook(const QUuid& id)
{
    const bool looseBook = !book_->isEmpty() && !library_->openBookID();
    if (!looseBook || id == book_->id()) {
        switchToLibraryBook(id);
        return;
    }
    // The open book is not in the library: keep it there, or let it go.
    auto* box = new QMessageBox(QMessageBox::Question, L10n::text("app.library.switch.title", "Keep the open book?"),
                                L10n::format(L10n::text("app.library.switch.message",
                                                        "“%@” was opened from files and is not in the library. Keep it in "
                                                        "the library before opening another book?"),
                                             {book_->metadata().title}),
                                QMessageBox::NoButton, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    auto* keep = box->addButton(L10n::text("app.library.switch.keep", "Keep and Open"), QMessageBox::AcceptRole);
    auto* discard = box->addButton(L10n::text("app.library.switch.discard", "Close It and Open"), QMessageBox::DestructiveRole);
    auto* cancel = box->addButton(L10n::text("app.library.switch.cancel", "Cancel"), QMessageBox::RejectRole);
    keep->setAccessibleName(L10n::text("app.library.switch.keep.name", "Keep the open book in the library, then open the other"));
    discard->setAccessibleName(L10n::text("app.library.switch.discard.name", "Close the open book without keeping it"));
    box->setDefaultButton(keep);
    box->setEscapeButton(cancel);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::buttonClicked, this, [this, id, keep, discard](QAbstractButton* b) {
        if (b == keep) {
            const QString error = library_->keepOpenBook();
            if (!error.isEmpty()) {
                showAlert(L10n::text("app.library.keep.failed.title", "The book could not be kept in the library"), error);
                return;
            }
            switchToLibraryBook(id);
        } else if (b == discard) {
            switchToLibraryBook(id);
        }
    });
    alerts_.removeAll(nullptr);
    alerts_ << box;
    box->open();
}

ActiveBookCoordinator::SwitchResult MainWindow::switchToLibraryBook(const QUuid& id)
{
    using Kind = ActiveBookCoordinator::SwitchResult::Kind;
    const std::optional<LibraryBookSummary> summary = library_->summary(id);
    const QString title = summary && !summary->title.isEmpty() ? summary->title : L10n::text("app.library.untitled", "Untitled");
    if (const QString busy = busyWithOpenBook(); !busy.isEmpty()) {
        const QString text = L10n::format(L10n::text("app.library.switch.busyBook", "“%@” can't be opened now. %@"), {title, busy});
        libraryView_->showMessage(text);
        statusBar()->showMessage(text, 8000);
        return ActiveBookCoordinator::SwitchResult::busy(ActiveBookCoordinator::ExclusiveOperation::adoptingBuild);
    }
    const ActiveBookCoordinator::SwitchResult r = library_->open(id);
    switch (r.kind) {
    case Kind::busy: {
        const QString text = L10n::format(L10n::text("app.library.switch.busy", "“%@” can't be opened now. %@ Try again when it has finished."),
                                          {title, LibraryController::operationText(*r.operation)});
        libraryView_->showMessage(text);
        statusBar()->showMessage(text, 8000);
        break;
    }
    case Kind::loadFailed:
        libraryView_->showMessage(QString());
        showAlert(L10n::text("app.library.switch.failed.title", "The book could not be opened"),
                  L10n::format(L10n::text("app.library.switch.failed", "“%@” could not be read from the library: %@"),
                               {title, r.detail}));
        break;
    case Kind::switched:
    case Kind::alreadyActive:
        libraryView_->showMessage(QString());
        buildBar_->showIdle(QString());
        importLabel_->clear();
        showView(View::book);
        break;
    }
    refreshState();
    return r;
}

void MainWindow::keepOpenBookInLibrary()
{
    const QString error = library_->keepOpenBook();
    if (!error.isEmpty())
        showAlert(L10n::text("app.library.keep.failed.title", "The book could not be kept in the library"), error);
    refreshState();
}

void MainWindow::recordBuild(const BuildResult& result)
{
    const QStringList files = result.outcome.outputFiles.isEmpty() ? QStringList{result.outcome.outputPath}
                                                                   : result.outcome.outputFiles;
    const BuildRecord record = buildInputs_.record(files);
    if (buildToken_ && library_->summary(buildToken_->bookID))
        library_->recordBuild(buildToken_->bookID, buildToken_->revision, record);
    else
        book_->setLastBuild(record);
    buildToken_.reset();
}

} // namespace folivox
