#pragma once

#include <QStyledItemDelegate>

namespace folivox {

// The queue's progress column: a bar with its percentage while a job runs,
// and full once it is built; nothing for the others.
class QueueProgressDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace folivox
