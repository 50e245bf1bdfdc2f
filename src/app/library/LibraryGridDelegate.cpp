#include "app/library/LibraryGridDelegate.h"

#include "app/library/CoverArt.h"
#include "app/library/LibraryBadge.h"
#include "app/library/LibraryModel.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

#include <cmath>

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
    const int textLeft = option.rect.left() + kPad - 2;
    const int textWidth = kCover + 4;
    const CardText& t = cardText(index.data(Qt::DisplayRole).toString(), index.data(LibraryModel::AuthorRole).toString(), option.font);
    QFont bold = option.font;
    bold.setBold(true);
    p->setFont(bold);
    p->setPen(option.palette.color(selected ? QPalette::Text : QPalette::WindowText));
    int line = square.bottom() + 6;
    const auto centred = [&](const QStaticText& text) {
        p->drawStaticText(QPointF(textLeft + (textWidth - text.size().width()) / 2.0, line), text);
        line += int(std::ceil(text.size().height()));
    };
    centred(t.first);
    if (!t.second.text().isEmpty())
        centred(t.second);
    p->setFont(option.font);
    p->setPen(option.palette.color(QPalette::PlaceholderText));
    line += 1;
    centred(t.author);
    p->restore();
}

const LibraryGridDelegate::CardText& LibraryGridDelegate::cardText(const QString& title, const QString& author,
                                                                    const QFont& font) const
{
    if (font != textFont_ || texts_.size() > 4096) {
        texts_.clear();
        textFont_ = font;
    }
    const QString key = title + QChar(0x1f) + author;
    auto it = texts_.find(key);
    if (it != texts_.end())
        return *it;
    const int width = kCover + 4;
    QFont bold = font;
    bold.setBold(true);
    const QFontMetrics bfm(bold);
    QString first = title, second;
    if (bfm.horizontalAdvance(title) > width) {
        // The longest start that fits, cut at a space when there is one.
        int low = 1, high = int(title.size());
        while (low < high) {
            const int mid = (low + high + 1) / 2;
            if (bfm.horizontalAdvance(title.left(mid)) <= width)
                low = mid;
            else
                high = mid - 1;
        }
        int cut = low;
        const int space = int(title.lastIndexOf(u' ', cut));
        if (space > 0)
            cut = space;
        first = title.left(cut);
        second = bfm.elidedText(title.mid(cut).trimmed(), Qt::ElideRight, width);
    }
    CardText t;
    const auto make = [](const QString& text, const QFont& f) {
        QStaticText s(text);
        s.setTextFormat(Qt::PlainText);
        s.setPerformanceHint(QStaticText::AggressiveCaching);
        s.prepare(QTransform(), f);
        return s;
    };
    t.first = make(first, bold);
    t.second = make(second, bold);
    t.author = make(QFontMetrics(font).elidedText(author, Qt::ElideRight, width), font);
    return *texts_.insert(key, t);
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
