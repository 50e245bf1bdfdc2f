#pragma once

#include <QFont>
#include <QHash>
#include <QStaticText>
#include <QStyledItemDelegate>

namespace folivox {

// One book of the library's grid: its cover (or a plain cover with the
// title's initials while the picture loads, or when there is none), title,
// author, and its badges over the foot of the cover. Every card has the same
// size, so the grid lays out 2,000 books without measuring them.
class LibraryGridDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit LibraryGridDelegate(QObject* parent = nullptr);

    static QSize cardSize();

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

private:
    // A card's text laid out once (two lines of title, the author): laying
    // out text is most of what drawing a card costs.
    struct CardText {
        QStaticText first;
        QStaticText second;
        QStaticText author;
    };
    const CardText& cardText(const QString& title, const QString& author, const QFont& font) const;

    mutable QHash<QString, CardText> texts_;
    mutable QFont textFont_;
};

} // namespace folivox
