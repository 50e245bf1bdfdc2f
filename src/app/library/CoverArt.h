#pragma once

#include "app/library/LibraryBadge.h"

#include <QFont>
#include <QList>
#include <QPixmap>
#include <QRect>
#include <QString>
#include <QUuid>

class QPainter;

namespace folivox {

// Drawing shared by the library's grid and list: a plain cover for a book
// without a picture (or whose picture is still loading), and a book's badges
// as coloured pills.
class CoverArt {
public:
    // A cover of the book's own colour with the first letters of its title.
    static QPixmap placeholder(const QUuid& id, const QString& title, int size);
    // Draws the badges from the left of `area`, wrapping upwards when
    // `upwards` (over the foot of a cover) or else on one line; gives the
    // width used.
    static int paintBadges(QPainter* painter, const QRect& area, const QList<LibraryBadge>& badges, const QFont& font,
                           bool upwards);
};

} // namespace folivox
