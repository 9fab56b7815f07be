#include "AppIcon.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

QPixmap PaintAppIcon(int nSize)
{
    QPixmap pixmap(nSize, nSize);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    // Everything is drawn on a 48-unit grid and scaled, so the three sizes
    // are the same picture.
    painter.scale(nSize / 48.0, nSize / 48.0);

    // A dark blue tile...
    QLinearGradient tile(0, 0, 0, 48);
    tile.setColorAt(0.0, QColor(0x2a, 0x5d, 0xb0));
    tile.setColorAt(1.0, QColor(0x12, 0x2b, 0x5c));
    painter.setPen(Qt::NoPen);
    painter.setBrush(tile);
    painter.drawRoundedRect(QRectF(1, 1, 46, 46), 8, 8);

    // ...with a rising bar chart, the measurements...
    painter.setBrush(QColor(0x9c, 0xc8, 0xff));
    painter.drawRect(QRectF(7, 30, 6, 10));
    painter.drawRect(QRectF(15, 24, 6, 16));
    painter.drawRect(QRectF(23, 18, 6, 22));

    // ...under a magnifying glass, the inspection...
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(0xff, 0xff, 0xff), 4, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(36, 28), QPointF(43, 35));
    painter.setPen(QPen(QColor(0xff, 0xff, 0xff), 3));
    painter.setBrush(QColor(255, 255, 255, 60));
    painter.drawEllipse(QPointF(29, 20), 10, 10);

    // ...with a green tick: the rig passes.
    QPainterPath tick;
    tick.moveTo(24, 20);
    tick.lineTo(28, 24);
    tick.lineTo(35, 15);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(QColor(0x4c, 0xd9, 0x64), 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPath(tick);
    return pixmap;
}

QIcon MakeAppIcon()
{
    QIcon icon;
    for (const int nSize : {48, 32, 24})
        icon.addPixmap(PaintAppIcon(nSize));
    return icon;
}
