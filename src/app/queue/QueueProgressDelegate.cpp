#include "app/queue/QueueProgressDelegate.h"

#include "app/queue/QueueJobModel.h"
#include "queue/records/QueueJobStatus.h"

#include <QApplication>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace folivox {

void QueueProgressDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const auto status = static_cast<QueueJobStatus>(index.data(QueueJobModel::StatusRole).toInt());
    // The row's background and selection as the style draws them, no text.
    QStyleOptionViewItem plain = option;
    initStyleOption(&plain, index);
    const QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &plain, painter, option.widget);
    if (status != QueueJobStatus::running && status != QueueJobStatus::completed)
        return;
    const double fraction = std::clamp(index.data(QueueJobModel::ProgressRole).toDouble(), 0.0, 1.0);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, true);
    const QRectF bar = QRectF(option.rect).adjusted(5, 6, -5, -6);
    const double radius = bar.height() / 2;
    painter->setPen(Qt::NoPen);
    painter->setBrush(QColor(0, 0, 0, 28));
    painter->drawRoundedRect(bar, radius, radius);
    if (fraction > 0) {
        const QColor fill = status == QueueJobStatus::completed ? QColor(46, 125, 50) : QColor(30, 110, 210);
        painter->setBrush(fill);
        painter->drawRoundedRect(QRectF(bar.left(), bar.top(), std::max(bar.height(), bar.width() * fraction), bar.height()), radius, radius);
    }
    QFont f = option.font;
    f.setPointSizeF(f.pointSizeF() * 0.85);
    f.setBold(true);
    painter->setFont(f);
    // Dark on the empty part, white on the filled part.
    const QString text = QStringLiteral("%1%").arg(std::lround(fraction * 100));
    painter->setPen(option.palette.color(QPalette::Text));
    painter->drawText(bar, Qt::AlignCenter, text);
    painter->setClipRect(QRectF(bar.left(), bar.top(), bar.width() * fraction, bar.height()));
    painter->setPen(Qt::white);
    painter->drawText(bar, Qt::AlignCenter, text);
    painter->restore();
}

} // namespace folivox
