#include "app/models/ChapterTableModel.h"

#include "app/book/ChapterTimeline.h"
#include "app/book/OpenBook.h"
#include "app/models/TimeText.h"
#include "platform/L10n.h"

#include <QBrush>
#include <QFont>
#include <QColor>

namespace folivox {

ChapterTableModel::ChapterTableModel(OpenBook& book, QObject* parent)
    : QAbstractTableModel(parent)
    , book_(book)
{
    const auto reset = [this] {
        beginResetModel();
        const ChapterTimeline timeline(book_.tracks());
        starts_.clear();
        for (const Bookmark& b : book_.chapters())
            starts_.push_back(timeline.start(b));
        endResetModel();
    };
    connect(&book_, &OpenBook::chaptersChanged, this, reset);
    connect(&book_, &OpenBook::tracksChanged, this, reset);
    reset();
}

int ChapterTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(book_.chapters().size());
}

int ChapterTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : columnCount_;
}

QVariant ChapterTableModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const size_t row = static_cast<size_t>(index.row());
    const Bookmark& b = book_.chapters()[row];
    const double begin = row < starts_.size() ? starts_[row] : 0.0;
    if (role == Qt::DisplayRole || role == Qt::EditRole) {
        switch (index.column()) {
        case number: return index.row() + 1;
        case title: return b.title;
        case start: return TimeText::format(begin);
        case duration: return TimeText::format(b.duration);
        }
    }
    if (role == Qt::FontRole && index.row() == current_) {
        QFont f;
        f.setBold(true);
        return f;
    }
    if (role == Qt::BackgroundRole && index.row() == current_)
        return QColor(255, 226, 150); // warm, unlike the selection's blue
    if (role == Qt::TextAlignmentRole && index.column() != title)
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    if (role == Qt::ToolTipRole && index.column() == start && index.row() == 0)
        return L10n::text("app.chapters.firstStart", "The first chapter always starts at the beginning of the book.");
    return {};
}

bool ChapterTableModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || role != Qt::EditRole)
        return false;
    switch (index.column()) {
    case title: return book_.renameChapter(index.row(), value.toString());
    case start: {
        const auto t = TimeText::parse(value.toString());
        return t && book_.setChapterStart(index.row(), *t);
    }
    case duration: {
        const auto t = TimeText::parse(value.toString());
        return t && book_.setChapterDuration(index.row(), *t);
    }
    }
    return false;
}

QVariant ChapterTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case number: return L10n::text("app.chapters.column.number", "#");
    case title: return L10n::text("app.chapters.column.title", "Title");
    case start: return L10n::text("app.chapters.column.start", "Start");
    case duration: return L10n::text("app.chapters.column.duration", "Duration");
    }
    return {};
}

Qt::ItemFlags ChapterTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsSelectable | Qt::ItemIsEnabled;
    const int last = rowCount() - 1;
    if (index.column() == title || (index.column() == start && index.row() > 0)
        || (index.column() == duration && index.row() < last))
        f |= Qt::ItemIsEditable;
    return f;
}

void ChapterTableModel::setCurrentChapter(int row)
{
    if (row == current_)
        return;
    const int old = current_;
    current_ = row;
    if (old >= 0 && old < rowCount())
        Q_EMIT dataChanged(index(old, 0), index(old, columnCount_ - 1));
    if (row >= 0 && row < rowCount())
        Q_EMIT dataChanged(index(row, 0), index(row, columnCount_ - 1));
}

} // namespace folivox
