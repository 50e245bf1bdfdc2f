#pragma once

#include <QWidget>

class QComboBox;
class QFrame;
class QLabel;
class QPushButton;
class QTableView;

namespace folivox {

class ChapterTableModel;
class OpenBook;

// The book's chapters: titles, starts and durations edited in place; the
// layout (the files' marks or one chapter per file); a chapter file applied,
// with how well it matches and why; batch rename. A chapter file found
// beside the audio that was not applied by itself is offered above the list.
class ChaptersPanel : public QWidget {
    Q_OBJECT
public:
    explicit ChaptersPanel(OpenBook& book, QWidget* parent = nullptr);

    QTableView* view() const { return view_; }
    ChapterTableModel* model() const { return model_; }
    QPushButton* batchRenameButton() const { return batchRename_; }
    QPushButton* chapterFileButton() const { return chapterFile_; }
    QLabel* sourceLabel() const { return source_; }
    QPushButton* applyOfferButton() const { return applyOffer_; }

Q_SIGNALS:
    void playChapterRequested(int row);
    void batchRenameRequested();
    void chapterFileRequested();

private:
    void refreshOffer();

    OpenBook& book_;
    ChapterTableModel* model_;
    QTableView* view_;
    QComboBox* layout_;
    QPushButton* chapterFile_;
    QPushButton* batchRename_;
    QLabel* source_;
    QFrame* offerBar_;
    QLabel* offerText_;
    QPushButton* applyOffer_;
    QPushButton* dismissOffer_;
};

} // namespace folivox
