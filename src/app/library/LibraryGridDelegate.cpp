#include "app/library/LibraryGridDelegate.h"

#include "app/library/CoverArt.h"
#include "app/library/LibraryBadge.h"
#include "app/library/LibraryModel.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

namespace folivox {

namespace {
constexpr int kCover = LibraryModel::kGridCover;
constexpr int kPad = 10;
} // namespace

LibraryGridDelegate::LibraryGridDelegate(QObject* parent)
    : QStyledItemDelegate(parent)
{
}

QSize LibraryGridDelegate::cardSize()
{
    const QFontMetrics fm(QApplication::font());
    return QSize(kCover + 2 * kPad, kCover + 2 * kPad + 2 * fm.height() + fm.height() + 6);
}

QSize LibraryGridDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const
{
    return cardSize();
}

void LibraryGridDelegate::paint(QPainter* p, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    p->save();
    p->setRenderHint(QPainter::Antialiasing, true);
    const QRect card = option.rect.adjusted(3, 3, -3, -3);
    const bool selected = option.state & QStyle::State_Selected;
    if (selected || (option.state & QStyle::State_MouseOver)) {
        QColor fill = option.palette.color(QPalette::Highlight);
        fill.setAlpha(selected ? 70 : 25);
        p->setPen(selected ? QPen(option.palette.color(QPalette::Highlight), 1.5) : Qt::NoPen);
        p->setBrush(fill);
        p->drawRoundedRect(card, 8, 8);
    }

    // The cover, centred in its square.
    const QRect square(option.rect.left() + kPad, option.rect.top() + kPad, kCover, kCover);
    QPixmap cover = index.data(LibraryModel::CoverRole).value<QPixmap>();
    if (cover.isNull())
        cover = CoverArt::placeholder(index.data(LibraryModel::IdRole).toUuid(), index.data(Qt::DisplayRole).toString(), kCover);
    const QSize size = cover.size().scaled(square.size(), Qt::KeepAspectRatio);
    const QRect coverRect(square.left() + (square.width() - size.width()) / 2, square.bottom() - size.height() + 1, size.width(),
                          size.height());
    p->drawPixmap(coverRect, cover);

    // Badges over the foot of the cover, from the left.
    CoverArt::paintBadges(p, coverRect.adjusted(4, 4, -4, -5), index.data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>(),
                          option.font, true);

    // Title (two lines at most) and author.
    const QRect text(option.rect.left() + kPad - 2, square.bottom() + 6, kCover + 4, option.rect.bottom() - square.bottom() - 6);
    QFont bold = option.font;
    bold.setBold(true);
    const QFontMetrics bfm(bold);
    p->setFont(bold);
    p->setPen(option.palette.color(selected ? QPalette::Text : QPalette::WindowText));
    QString title = index.data(Qt::DisplayRole).toString();
    QString first = title, second;
    if (bfm.horizontalAdvance(title) > text.width()) {
        int cut = title.size();
        while (cut > 1 && bfm.horizontalAdvance(title.left(cut)) > text.width())
            --cut;
        const int space = title.lastIndexOf(u' ', cut);
        if (space > 0)
            cut = space;
        first = title.left(cut);
        second = bfm.elidedText(title.mid(cut).trimmed(), Qt::ElideRight, text.width());
    }
    p->drawText(QRect(text.left(), text.top(), text.width(), bfm.height()), Qt::AlignHCenter | Qt::AlignTop, first);
    int line = text.top() + bfm.height();
    if (!second.isEmpty()) {
        p->drawText(QRect(text.left(), line, text.width(), bfm.height()), Qt::AlignHCenter | Qt::AlignTop, second);
        line += bfm.height();
    }
    p->setFont(option.font);
    p->setPen(option.palette.color(QPalette::PlaceholderText));
    const QFontMetrics fm(option.font);
    p->drawText(QRect(text.left(), line + 1, text.width(), fm.height()), Qt::AlignHCenter | Qt::AlignTop,
                fm.elidedText(index.data(LibraryModel::AuthorRole).toString(), Qt::ElideRight, text.width()));
    p->restore();
}

bool LibraryGridDelegate::helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                                    const QModelIndex& index)
{
    if (event->type() == QEvent::ToolTip && index.isValid()) {
        // The reasons of the badges, the book's trouble first.
        QStringList lines;
        const QString attention = index.data(LibraryModel::AttentionRole).toString();
        if (!attention.isEmpty())
            lines << attention;
        for (const LibraryBadge& b : index.data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>())
            if (!b.toolTip.isEmpty())
                lines << b.text + QStringLiteral(": ") + b.toolTip;
        if (lines.isEmpty())
            lines << index.data(Qt::DisplayRole).toString();
        QToolTip::showText(event->globalPos(), lines.join(u'\n'), view);
        return true;
    }
    return QStyledItemDelegate::helpEvent(event, view, option, index);
}

} // namespace folivox
