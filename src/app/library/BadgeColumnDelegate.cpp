#include "app/library/BadgeColumnDelegate.h"

#include "app/library/CoverArt.h"
#include "app/library/LibraryModel.h"

#include <QApplication>
#include <QPainter>

namespace folivox {

void BadgeColumnDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    // The row's background and selection as the style draws them, no text.
    QStyleOptionViewItem plain = option;
    initStyleOption(&plain, index);
    const QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &plain, painter, option.widget);
    CoverArt::paintBadges(painter, option.rect.adjusted(4, 0, -4, 0), index.data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>(),
                          option.font, false);
}

} // namespace folivox
