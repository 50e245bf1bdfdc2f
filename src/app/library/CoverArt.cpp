#include "app/library/CoverArt.h"

#include <QFontMetrics>
#include <QPainter>
#include <QPainterPath>
#include <QPixmapCache>

namespace folivox {

namespace {

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

QPixmap CoverArt::placeholder(const QUuid& id, const QString& title, int size)
{
    const QString key = QStringLiteral("folivox-cover-%1-%2-%3").arg(id.toString(QUuid::Id128)).arg(size).arg(qHash(title));
    QPixmap cached;
    if (QPixmapCache::find(key, &cached))
        return cached;
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing, true);
    // A calm colour of its own for each book.
    const int hue = int(qHash(id) % 360);
    QLinearGradient fill(0, 0, 0, size);
    fill.setColorAt(0, QColor::fromHsv(hue, 80, 170));
    fill.setColorAt(1, QColor::fromHsv(hue, 90, 120));
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawRoundedRect(QRectF(0, 0, size, size), size / 30.0, size / 30.0);
    QFont big;
    big.setPixelSize(std::max(8, size * 2 / 5));
    big.setBold(true);
    p.setFont(big);
    p.setPen(QColor(255, 255, 255, 225));
    p.drawText(QRect(0, 0, size, size), Qt::AlignCenter, initials(title));
    p.end();
    QPixmapCache::insert(key, pixmap);
    return pixmap;
}

int CoverArt::paintBadges(QPainter* p, const QRect& area, const QList<LibraryBadge>& badges, const QFont& font, bool upwards)
{
    p->save();
    p->setRenderHint(QPainter::Antialiasing, true);
    QFont small = font;
    small.setPointSizeF(small.pointSizeF() * 0.82);
    small.setBold(true);
    p->setFont(small);
    const QFontMetrics fm(small);
    const int h = fm.height() + 4;
    int x = area.left();
    int y = upwards ? area.bottom() - h + 1 : area.top() + (area.height() - h) / 2;
    int right = x;
    for (const LibraryBadge& b : badges) {
        const int w = fm.horizontalAdvance(b.text) + 10;
        if (x + w > area.right() && x > area.left()) {
            if (!upwards)
                break;
            x = area.left();
            y -= h + 3;
        }
        const QRect pill(x, y, w, h);
        p->setPen(Qt::NoPen);
        p->setBrush(b.color());
        p->drawRoundedRect(pill, h / 2.0, h / 2.0);
        if (b.kind == LibraryBadge::Kind::building && b.progress > 0) {
            QPainterPath clip;
            clip.addRoundedRect(pill, h / 2.0, h / 2.0);
            p->save();
            p->setClipPath(clip);
            p->fillRect(QRect(pill.left(), pill.top(), int(pill.width() * b.progress), pill.height()), QColor(255, 255, 255, 70));
            p->restore();
        }
        p->setPen(Qt::white);
        p->drawText(pill, Qt::AlignCenter, b.text);
        x += w + 4;
        right = std::max(right, pill.right());
    }
    p->restore();
    return right - area.left();
}

} // namespace folivox
