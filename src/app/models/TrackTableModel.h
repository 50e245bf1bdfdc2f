#pragma once

#include "core/book/Track.h"

#include <QAbstractTableModel>

namespace folivox {

class OpenBook;
class TrackIntegrity;

// The book's tracks in order: number, file, format, duration and, for an
// MP3, what its check found (from TrackIntegrity, as it publishes). Rows can
// be dragged to a new place; the move goes through the book (undoable).
class TrackTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { number, file, format, duration, integrity, columnCount_ };

    explicit TrackTableModel(OpenBook& book, QObject* parent = nullptr);

    void setIntegrity(TrackIntegrity* source);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    Qt::DropActions supportedDropActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

    // "MP3 · 44.1 kHz · Mono · 64 kbps" from a track's probed format.
    static QString formatText(const Track& track);

private:
    OpenBook& book_;
    TrackIntegrity* integrity_ = nullptr;
};

} // namespace folivox
