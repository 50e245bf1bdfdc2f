#pragma once

#include "library/LibraryBookSummary.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QPointer>
#include <QUuid>

#include <vector>

namespace folivox {

class LibraryController;
class QueueController;
class ThumbnailCache;

// The books of the library, one row each, in the store's order: title,
// author, narrator, length and state; the cover (from ThumbnailCache) and
// the badges (LibraryBadge) as roles. The rows are the store's summaries as
// last published: the model takes a fresh copy whenever the library says
// it changed, and the queue's badges are read from the queue's controller
// whenever they are shown.
class LibraryModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { title, author, narrator, length, state, columnCount_ };
    enum Role {
        IdRole = Qt::UserRole + 1,
        BadgesRole,      // QList<LibraryBadge>
        CoverRole,       // QPixmap at the grid's size, null while it loads
        ListCoverRole,   // QPixmap at the list's size, null while it loads
        AuthorRole,      // text
        DurationRole,    // seconds
        CreatedRole,     // QDateTime
        EditedRole,      // QDateTime
        SearchTextRole,  // title, author and narrator, lower case
        AttentionRole,   // why the book needs attention (looked up now), or nothing
    };

    static constexpr int kGridCover = 150;
    static constexpr int kListCover = 36;

    LibraryModel(LibraryController& library, ThumbnailCache& thumbnails, QObject* parent = nullptr);

    // Badges follow this queue (none: no queue badges).
    void setQueue(QueueController* queue);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    QModelIndex indexOf(const QUuid& id, int column = 0) const;
    const LibraryBookSummary* summaryAt(int row) const;

    // "1 h 02 min".
    static QString durationText(double seconds);

private:
    void refresh();
    void queueChanged();
    QPixmap cover(const LibraryBookSummary& s, int size) const;

    LibraryController& library_;
    ThumbnailCache& thumbnails_;
    QPointer<QueueController> queue_;
    std::vector<LibraryBookSummary> rows_;
    QHash<QUuid, int> rowOf_;
    mutable QHash<QString, QString> attention_; // id + editedAt → text
};

} // namespace folivox
