#pragma once

#include "app/build/BuildRunner.h"
#include "app/settings/AppPreferences.h"
#include "library/ActiveBookCoordinator.h"
#include "library/BookBuildInputs.h"

#include <QMainWindow>
#include <QPointer>

#include <memory>
#include <thread>

class QAction;
class QActionGroup;
class QLabel;
class QMessageBox;
class QProgressBar;
class QStackedWidget;
class QTabWidget;

namespace folivox {

class BatchRenameDialog;
class BookPlayer;
class BuildBar;
class ChaptersPanel;
class DetailsPanel;
class ExportPanel;
class InPlaceUpdateBar;
class InPlaceUpdateViewModel;
class LibraryController;
class LibraryView;
class QueueView;
class QueueWorkspace;
class OpenBook;
class PlayerBar;
class ResultPanel;
class TrackIntegrity;
class TracksPanel;
class WorkingStateStore;

// The book window. It shows the open book and hands every request to the
// services below it: imports and edits to OpenBook, builds to BuildRunner
// (BuildUseCase off the main thread), listening to BookPlayer. Messages the
// user must read open as window-modal boxes that never block the event loop.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Reopens the book saved at the last quit, if any; a damaged file is set
    // aside and the user told.
    void restoreWorkingState();
    // Saves the open book's working state (removes it when no book is open).
    void saveWorkingState();

    // What File ▸ Open and a drop do.
    void openPaths(const QStringList& paths);
    void startBuild();
    void cancelBuild();
    void newBook();
    void showBatchRename();
    void showSettings();
    void showBuildLog();
    void applyPreferences(const AppPreferences& preferences);

    // The three views of the window.
    enum class View { book, library, queue };
    void showView(View view);
    View currentView() const;
    // Opens a library book: a book opened from files is kept in the library
    // first, or closed, as the user chooses. A switch that can't happen
    // (busy, a record that can't be read) is shown, never passed over.
    void openLibraryBook(const QUuid& id);
    // The switch itself, without asking; what it gave.
    ActiveBookCoordinator::SwitchResult switchToLibraryBook(const QUuid& id);
    // Puts the book opened from files into the library.
    void keepOpenBookInLibrary();
    // Queues library books, or the open book, to be built into the default
    // output folder with the folders of the settings' template. Books whose
    // output is already there are queued to replace it if the user agrees.
    void addBooksToQueue(const QList<QUuid>& ids);
    void addOpenBookToQueue();

    OpenBook& book() { return *book_; }
    LibraryController& library() { return *library_; }
    LibraryView* libraryView() const { return libraryView_; }
    QueueWorkspace& queue() { return *queue_; }
    QueueView* queueView() const { return queueView_; }
    InPlaceUpdateViewModel& inPlace() { return *inPlace_; }
    InPlaceUpdateBar* inPlaceBar() const { return inPlaceBar_; }
    TrackIntegrity& integrity() { return *integrity_; }
    // Updates the open book's built files in place with its tags.
    void updateInPlace();
    BookPlayer& player() { return *player_; }
    BuildRunner& runner() { return *runner_; }
    TracksPanel* tracksPanel() const { return tracks_; }
    ChaptersPanel* chaptersPanel() const { return chapters_; }
    DetailsPanel* detailsPanel() const { return details_; }
    ExportPanel* exportPanel() const { return export_; }
    ResultPanel* resultPanel() const { return result_; }
    BuildBar* buildBar() const { return buildBar_; }
    PlayerBar* playerBar() const { return playerBar_; }
    QTabWidget* sideTabs() const { return tabs_; }
    const AppPreferences& preferences() const { return preferences_; }
    // The message boxes now open, oldest first.
    QList<QMessageBox*> openAlerts() const;
    QPointer<BatchRenameDialog> batchRenameDialog() const { return renameDialog_; }

    enum Tab { detailsTab, exportTab, resultTab };

Q_SIGNALS:
    void buildEnded();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void showAlert(const QString& title, const QString& message);
    void askToReplace(const QString& output);
    void runBuild(bool replaceExisting);
    void chooseFilesToOpen(bool folder);
    void chooseChapterFile();
    void refreshState();
    void recordBuild(const BuildResult& result);
    void reportQueued(const QList<QUuid>& jobs, const QStringList& problems, int existing,
                      const std::function<void()>& replace);
    void refreshQueueAction();
    void inPlaceFinished();
    void offerRepairedCopies(const QMap<QUuid, QUrl>& copies, const QStringList& failures);
    // Why the open book can't be closed or switched now (a build or an
    // update in place writes its files), or nothing.
    QString busyWithOpenBook() const;
    // The quit warning: the default button does not quit.
    void askBeforeQuit(const QString& title, const QString& consequence);

    std::unique_ptr<OpenBook> book_;
    LibraryController* library_;
    LibraryView* libraryView_;
    QueueWorkspace* queue_;
    QueueView* queueView_;
    InPlaceUpdateViewModel* inPlace_;
    InPlaceUpdateBar* inPlaceBar_;
    TrackIntegrity* integrity_;
    std::optional<ActiveBookCoordinator::BuildStartToken> inPlaceToken_;
    bool quitConfirmed_ = false;
    QStackedWidget* views_;
    QActionGroup* viewActions_;
    QAction* showBook_;
    QAction* showLibrary_;
    QAction* showQueue_;
    QAction* addToQueue_;
    QAction* updateInPlace_;
    QAction* keepInLibrary_;
    std::optional<ActiveBookCoordinator::BuildStartToken> buildToken_;
    BookBuildInputs buildInputs_; // of the running build: the book as it started
    BuildRunner* runner_;
    BookPlayer* player_;
    std::unique_ptr<WorkingStateStore> workingState_;
    AppPreferences preferences_;

    QStackedWidget* pages_;
    TracksPanel* tracks_;
    ChaptersPanel* chapters_;
    DetailsPanel* details_;
    ExportPanel* export_;
    ResultPanel* result_;
    QTabWidget* tabs_;
    BuildBar* buildBar_;
    PlayerBar* playerBar_;
    QLabel* importLabel_;
    QProgressBar* importProgress_;
    QAction* undo_;
    QAction* redo_;
    QAction* build_;
    QAction* cancel_;
    QAction* batchRename_;
    QList<QPointer<QMessageBox>> alerts_;
    QPointer<BatchRenameDialog> renameDialog_;
    QList<QPointer<QDialog>> editorWindows_;
    std::thread encoderProbe_;
    bool saved_ = false;
};

} // namespace folivox
