#pragma once

#include <QAbstractTableModel>

namespace folivox {

class OpenBook;

// The book's chapters: number, title, start and duration on the book's
// clock. Title, start and duration are edited in place; each edit goes
// through the book and so can be undone. The chapter playing now is shown
// in bold with a highlight.
class ChapterTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { number, title, start, duration, columnCount_ };

    explicit ChapterTableModel(OpenBook& book, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    void setCurrentChapter(int row);
    int currentChapter() const { return current_; }

private:
    OpenBook& book_;
    std::vector<double> starts_;
    int current_ = -1;
};

} // namespace folivox
