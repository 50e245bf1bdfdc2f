#pragma once

#include <QStyledItemDelegate>

namespace folivox {

// The state column of the library's list: the book's badges as pills.
class BadgeColumnDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace folivox
