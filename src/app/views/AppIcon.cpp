#include "app/views/AppIcon.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace folivox {

namespace {

QPixmap draw(int size)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.scale(size / 256.0, size / 256.0);
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0x2f, 0x5d, 0x50));
    p.drawRoundedRect(QRectF(16, 16, 224, 224), 40, 40);
    p.setBrush(QColor(0xf4, 0xef, 0xe1));
    p.drawRoundedRect(QRectF(64, 60, 96, 140), 16, 16);
    p.setBrush(QColor(0xd9, 0xcf, 0xb4));
    p.drawRoundedRect(QRectF(160, 60, 32, 124), 10, 10);
    p.setBrush(QColor(0x2f, 0x5d, 0x50));
    p.drawRoundedRect(QRectF(80, 84, 56, 8), 4, 4);
    p.drawRoundedRect(QRectF(80, 104, 44, 8), 4, 4);
    QPen wave(QColor(0xc9, 0x6b, 0x3b), 8, Qt::SolidLine, Qt::RoundCap);
    p.setPen(wave);
    p.drawLine(QPointF(92, 136), QPointF(92, 172));
    p.drawLine(QPointF(104, 128), QPointF(104, 180));
    p.drawLine(QPointF(116, 140), QPointF(116, 168));
    p.drawLine(QPointF(128, 132), QPointF(128, 176));
    return pixmap;
}

} // namespace

QIcon AppIcon::icon()
{
    QIcon icon;
    for (int size : {16, 32, 48, 64, 128, 256})
        icon.addPixmap(draw(size));
    return icon;
}

} // namespace folivox
