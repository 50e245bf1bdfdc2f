#include "app/library/LibraryGridDelegate.h"

#include "app/library/LibraryBadge.h"
#include "app/library/LibraryModel.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

namespace folivox {

namespace {

constexpr int kCover = LibraryModel::kGridCover;
constexpr int kPad = 10;

QColor placeholderColor(const QUuid& id)
{
    // A calm colour of its own for each book.
    const int hue = int(qHash(id) % 360);
    return QColor::fromHsv(hue, 70, 150);
}

QString initials(const QString& title)
{
    QString out;
    for (const QString& word : title.split(u' ', Qt::SkipEmptyParts)) {
        if (word.at(0).isLetterOrNumber())
            out += word.at(0).toUpper();
        if (out.size() == 2)
            break;
    }
    return out;
}

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
    const QPixmap cover = index.data(LibraryModel::CoverRole).value<QPixmap>();
    QRect coverRect;
    if (!cover.isNull()) {
        const QSize size = cover.size().scaled(square.size(), Qt::KeepAspectRatio);
        coverRect = QRect(square.left() + (square.width() - size.width()) / 2,
                          square.bottom() - size.height() + 1, size.width(), size.height());
        p->drawPixmap(coverRect, cover);
    } else {
        coverRect = square.adjusted(12, 0, -12, 0);
        const QString title = index.data(Qt::DisplayRole).toString();
        p->setPen(Qt::NoPen);
        p->setBrush(placeholderColor(index.data(LibraryModel::IdRole).toUuid()));
        p->drawRoundedRect(coverRect, 4, 4);
        QFont big = option.font;
        big.setPointSizeF(big.pointSizeF() * 2.4);
        big.setBold(true);
        p->setFont(big);
        p->setPen(QColor(255, 255, 255, 220));
        p->drawText(coverRect, Qt::AlignCenter, initials(title));
    }

    // Badges over the foot of the cover, from the left.
    const QList<LibraryBadge> badges = index.data(LibraryModel::BadgesRole).value<QList<LibraryBadge>>();
    QFont small = option.font;
    small.setPointSizeF(small.pointSizeF() * 0.82);
    small.setBold(true);
    p->setFont(small);
    const QFontMetrics sfm(small);
    int x = coverRect.left() + 4;
    int y = coverRect.bottom() - sfm.height() - 6;
    for (const LibraryBadge& b : badges) {
        const int w = sfm.horizontalAdvance(b.text) + 10;
        if (x + w > coverRect.right() - 2 && x > coverRect.left() + 4) {
            x = coverRect.left() + 4;
            y -= sfm.height() + 6;
        }
        const QRect pill(x, y, w, sfm.height() + 4);
        p->setPen(Qt::NoPen);
        p->setBrush(b.color());
        p->drawRoundedRect(pill, pill.height() / 2.0, pill.height() / 2.0);
        if (b.kind == LibraryBadge::Kind::building && b.progress > 0) {
            QPainterPath clip;
            clip.addRoundedRect(pill, pill.height() / 2.0, pill.height() / 2.0);
            p->save();
            p->setClipPath(clip);
            p->fillRect(QRect(pill.left(), pill.top(), int(pill.width() * b.progress), pill.height()), QColor(255, 255, 255, 60));
            p->restore();
        }
        p->setPen(Qt::white);
        p->drawText(pill, Qt::AlignCenter, b.text);
        x += w + 4;
    }

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
