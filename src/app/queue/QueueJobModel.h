#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QUuid>

namespace folivox {

class QueueController;
struct QueueJob;

// The queue's jobs as the controller publishes them: book, status, progress,
// what the job is doing or how it ended, and where it goes. The model keeps
// only the order of the jobs (so that rows stay put between the controller's
// changes); every value is read from the controller when it is shown.
class QueueJobModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { book, status, progress, detail, output, columnCount_ };
    enum Role { IdRole = Qt::UserRole + 1, StatusRole, ProgressRole };

    explicit QueueJobModel(QueueController& controller, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    QModelIndex indexOf(const QUuid& id, int column = 0) const;
    // The job of a row, as the controller has it now.
    const QueueJob* jobAt(int row) const;

    // "Failed: the disk is full" and the like: how a job stands, in words.
    static QString detailText(const QueueJob& job);

private:
    void refresh();

    QueueController& controller_;
    QList<QUuid> ids_;
};

} // namespace folivox
