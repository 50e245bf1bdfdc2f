#pragma once

#include <QList>
#include <QUuid>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QListView;
class QModelIndex;
class QPushButton;
class QStackedWidget;
class QTableView;
class QToolButton;

namespace folivox {

class LibraryController;
class LibraryFilterModel;
class LibraryModel;
class QueueController;
class ThumbnailCache;

// The library: every book as a grid of covers or as a list, searched and
// ordered as the user chooses, with its badges. Add Folders reads folders
// into books (AddBooksDialog), Remove moves books to the trash with an Undo
// that puts them back in their places, a double click (or Open) opens a book
// and Add to Queue queues the selected books. What the views show is the
// library's model; nothing here keeps books of its own.
class LibraryView : public QWidget {
    Q_OBJECT
public:
    enum class Layout { grid, list };

    LibraryView(LibraryController& library, QWidget* parent = nullptr);
    ~LibraryView() override;

    void setQueue(QueueController* queue);

    Layout layout() const;
    void setLayout(Layout layout);
    QList<QUuid> selectedBooks() const;
    void selectBooks(const QList<QUuid>& ids);

    // A message over the books (a switch that could not happen, ...); empty hides it.
    void showMessage(const QString& text);
    QString message() const;

    // Asks for a folder, or takes these, and adds them.
    void chooseFoldersToAdd();
    void addFolders(const QStringList& paths);
    void removeSelected();
    void undoRemove();

    LibraryModel* model() const { return model_; }
    LibraryFilterModel* filter() const { return filter_; }
    ThumbnailCache* thumbnails() const { return thumbnails_; }
    QListView* gridView() const { return grid_; }
    QTableView* listView() const { return list_; }
    QLineEdit* searchField() const { return search_; }
    QComboBox* orderBox() const { return order_; }
    QToolButton* gridButton() const { return gridButton_; }
    QToolButton* listButton() const { return listButton_; }
    QPushButton* addButton() const { return add_; }
    QPushButton* openButton() const { return open_; }
    QPushButton* queueButton() const { return queue_; }
    QPushButton* removeButton() const { return remove_; }
    QPushButton* undoButton() const { return undo_; }
    QLabel* undoLabel() const { return undoLabel_; }
    QLabel* countLabel() const { return count_; }
    class AddBooksDialog* addDialog() const;

Q_SIGNALS:
    void openRequested(const QUuid& id);
    void addToQueueRequested(const QList<QUuid>& ids);
    // What can be done with the selection changed.
    void selectionStateChanged();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void refreshState();
    void activated(const QModelIndex& index);

    LibraryController& library_;
    ThumbnailCache* thumbnails_;
    LibraryModel* model_;
    LibraryFilterModel* filter_;
    QStackedWidget* stack_;
    QListView* grid_;
    QTableView* list_;
    QLineEdit* search_;
    QComboBox* order_;
    QToolButton* gridButton_;
    QToolButton* listButton_;
    QPushButton* add_;
    QPushButton* open_;
    QPushButton* queue_;
    QPushButton* remove_;
    QWidget* messageBar_;
    QLabel* messageLabel_;
    QWidget* undoBar_;
    QLabel* undoLabel_;
    QPushButton* undo_;
    QLabel* count_;
    QLabel* notice_;
    QWidget* addDialog_ = nullptr;
};

} // namespace folivox
