#include "app/library/LibraryModel.h"

#include "app/library/CoverArt.h"
#include "app/library/LibraryBadge.h"
#include "app/library/LibraryController.h"
#include "app/library/ThumbnailCache.h"
#include "library/LibraryAttention.h"
#include "platform/L10n.h"
#include "queue/run/QueueController.h"

#include <QLocale>
#include <QPixmap>

#include <cmath>

namespace folivox {

LibraryModel::LibraryModel(LibraryController& library, ThumbnailCache& thumbnails, QObject* parent)
    : QAbstractTableModel(parent)
    , library_(library)
    , thumbnails_(thumbnails)
{
    connect(&library_, &LibraryController::summariesChanged, this, &LibraryModel::refresh);
    connect(&library_, &LibraryController::openBookChanged, this, [this] {
        if (!rows_.empty())
            Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount_ - 1), {BadgesRole, Qt::DisplayRole});
    });
    connect(&thumbnails_, &ThumbnailCache::ready, this, [this](const QUuid& id) {
        const QModelIndex i = indexOf(id);
        if (i.isValid())
            Q_EMIT dataChanged(i, i, {CoverRole, ListCoverRole, Qt::DecorationRole});
    });
    refresh();
}

void LibraryModel::setQueue(QueueController* queue)
{
    if (queue_)
        disconnect(queue_, nullptr, this, nullptr);
    queue_ = queue;
    if (queue_)
        connect(queue_, &QueueController::changed, this, &LibraryModel::queueChanged);
    queueChanged();
}

void LibraryModel::queueChanged()
{
    if (!rows_.empty())
        Q_EMIT dataChanged(index(0, state), index(rowCount() - 1, state), {BadgesRole, Qt::DisplayRole, Qt::ToolTipRole});
    if (!rows_.empty())
        Q_EMIT dataChanged(index(0, title), index(rowCount() - 1, title), {BadgesRole});
}

void LibraryModel::refresh()
{
    std::vector<LibraryBookSummary> next = library_.summaries();
    const auto sameIds = [](const std::vector<LibraryBookSummary>& a, const std::vector<LibraryBookSummary>& b) {
        if (a.size() != b.size())
            return false;
        for (size_t i = 0; i < a.size(); ++i)
            if (a[i].id != b[i].id)
                return false;
        return true;
    };
    if (sameIds(rows_, next)) {
        for (size_t i = 0; i < next.size(); ++i) {
            if (next[i] == rows_[i])
                continue;
            if (next[i].editedAt != rows_[i].editedAt || next[i].hasThumb != rows_[i].hasThumb)
                thumbnails_.forget(next[i].id);
            rows_[i] = next[i];
            Q_EMIT dataChanged(index(int(i), 0), index(int(i), columnCount_ - 1));
        }
        return;
    }
    // Books taken out or put in with the others in their order: rows are
    // removed or inserted so that the views keep their selection.
    QHash<QUuid, int> nextRow;
    for (size_t i = 0; i < next.size(); ++i)
        nextRow.insert(next[i].id, int(i));
    // (Many at once, or from nothing, is a reset: cheaper for the views.)
    constexpr size_t kFew = 16;
    const size_t difference = next.size() > rows_.size() ? next.size() - rows_.size() : rows_.size() - next.size();
    bool onlyRemoved = next.size() < rows_.size() && difference <= kFew;
    for (size_t i = 0, j = 0; onlyRemoved && i < rows_.size(); ++i) {
        if (!nextRow.contains(rows_[i].id))
            continue;
        onlyRemoved = j < next.size() && next[j].id == rows_[i].id;
        ++j;
    }
    if (onlyRemoved) {
        for (int i = int(rows_.size()) - 1; i >= 0; --i) {
            if (nextRow.contains(rows_[size_t(i)].id))
                continue;
            beginRemoveRows({}, i, i);
            thumbnails_.forget(rows_[size_t(i)].id);
            rows_.erase(rows_.begin() + i);
            endRemoveRows();
        }
    } else {
        bool onlyInserted = next.size() > rows_.size() && !rows_.empty() && difference <= kFew;
        for (size_t i = 0, j = 0; onlyInserted && j < rows_.size(); ++i) {
            if (i >= next.size()) {
                onlyInserted = false;
                break;
            }
            if (next[i].id == rows_[j].id)
                ++j;
        }
        if (onlyInserted) {
            for (size_t i = 0; i < next.size(); ++i) {
                if (i < rows_.size() && rows_[i].id == next[i].id)
                    continue;
                beginInsertRows({}, int(i), int(i));
                rows_.insert(rows_.begin() + long(i), next[i]);
                endInsertRows();
            }
        } else {
            beginResetModel();
            rows_ = next;
            endResetModel();
        }
    }
    rowOf_.clear();
    for (size_t i = 0; i < rows_.size(); ++i) {
        rowOf_.insert(rows_[i].id, int(i));
        if (!(rows_[i] == next[i])) {
            rows_[i] = next[i];
            Q_EMIT dataChanged(index(int(i), 0), index(int(i), columnCount_ - 1));
        }
    }
}

int LibraryModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(rows_.size());
}

int LibraryModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : columnCount_;
}

QModelIndex LibraryModel::indexOf(const QUuid& id, int column) const
{
    const auto it = rowOf_.constFind(id);
    return it == rowOf_.constEnd() ? QModelIndex() : index(*it, column);
}

const LibraryBookSummary* LibraryModel::summaryAt(int row) const
{
    return row >= 0 && row < rowCount() ? &rows_[size_t(row)] : nullptr;
}

QString LibraryModel::durationText(double seconds)
{
    const qint64 minutes = std::llround(seconds / 60.0);
    if (minutes < 60)
        return L10n::format(L10n::text("app.library.minutes", "%d min"), {QString::number(std::max<qint64>(minutes, seconds > 0 ? 1 : 0))});
    return L10n::format(L10n::text("app.library.hours", "%d h %@ min"),
                        {QString::number(minutes / 60), QStringLiteral("%1").arg(minutes % 60, 2, 10, QChar(u'0'))});
}

QPixmap LibraryModel::cover(const LibraryBookSummary& s, int size) const
{
    if (!s.hasThumb)
        return {};
    return thumbnails_.thumbnail(s.id, library_.thumbnailPath(s.id), QString::number(s.editedAt.toMSecsSinceEpoch()), size);
}

QVariant LibraryModel::data(const QModelIndex& index, int role) const
{
    const LibraryBookSummary* s = summaryAt(index.row());
    if (!s)
        return {};
    switch (role) {
    case IdRole: return s->id;
    case AuthorRole: return s->author.value_or(QString());
    case DurationRole: return s->totalDuration.value_or(0.0);
    case CreatedRole: return s->createdAt;
    case EditedRole: return s->editedAt;
    case SearchTextRole:
        return (s->title + u' ' + s->author.value_or(QString()) + u' ' + s->narrator.value_or(QString())).toLower();
    case CoverRole: return cover(*s, kGridCover);
    case ListCoverRole: return cover(*s, kListCover);
    case BadgesRole: {
        std::optional<QueueController::BookBadge> badge;
        if (queue_ && queue_->bookStatus().contains(s->id))
            badge = queue_->bookStatus().value(s->id);
        return QVariant::fromValue(LibraryBadge::of(*s, badge, library_.openBookID() == s->id));
    }
    case AttentionRole: {
        if (!s->needsAttention || !library_.store())
            return {};
        const QString key = s->id.toString() + s->editedAt.toString(Qt::ISODateWithMs);
        if (!attention_.contains(key)) {
            const auto found = LibraryAttention::find(*library_.store(), s->id);
            attention_.insert(key, found ? found->text() : QString());
        }
        const QString text = attention_.value(key);
        return text.isEmpty() ? QVariant() : QVariant(text);
    }
    default: break;
    }
    if (role == Qt::DisplayRole) {
        switch (index.column()) {
        case title: return s->title.isEmpty() ? L10n::text("app.library.untitled", "Untitled") : s->title;
        case author: return s->author.value_or(QString());
        case narrator: return s->narrator.value_or(QString());
        case length: return s->totalDuration ? durationText(*s->totalDuration) : QString();
        case state: {
            QStringList texts;
            for (const LibraryBadge& b : data(index, BadgesRole).value<QList<LibraryBadge>>())
                texts << b.text;
            return texts.join(QStringLiteral(" · "));
        }
        }
    }
    if (role == Qt::DecorationRole && index.column() == title) {
        const QPixmap picture = cover(*s, kListCover);
        return picture.isNull() ? CoverArt::placeholder(s->id, data(index, Qt::DisplayRole).toString(), kListCover) : picture;
    }
    if (role == Qt::ToolTipRole) {
        if (s->needsAttention)
            return data(index, AttentionRole);
        if (index.column() == state) {
            QStringList tips;
            for (const LibraryBadge& b : data(index, BadgesRole).value<QList<LibraryBadge>>())
                if (!b.toolTip.isEmpty())
                    tips << b.toolTip;
            return tips.join(u'\n');
        }
        return s->sourceHint;
    }
    if (role == Qt::TextAlignmentRole && index.column() == length)
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

QVariant LibraryModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case title: return L10n::text("app.library.column.title", "Title");
    case author: return L10n::text("app.library.column.author", "Author");
    case narrator: return L10n::text("app.library.column.narrator", "Narrator");
    case length: return L10n::text("app.library.column.length", "Length");
    case state: return L10n::text("app.library.column.state", "State");
    }
    return {};
}

} // namespace folivox
