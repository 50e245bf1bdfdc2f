#pragma once

#include <QCollator>
#include <QSortFilterProxyModel>
#include <QStringList>

namespace folivox {

// The library as the user asked to see it: books whose title, author or
// narrator hold every word of the search, in the chosen order.
class LibraryFilterModel : public QSortFilterProxyModel {
    Q_OBJECT
public:
    enum class Order { title, author, recentlyAdded, recentlyEdited, length };

    explicit LibraryFilterModel(QObject* parent = nullptr);

    void setSearch(const QString& text);
    const QString& search() const { return search_; }
    void setOrder(Order order);
    Order order() const { return order_; }

    static QString orderName(Order order);

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    QString search_;
    QStringList words_;
    Order order_ = Order::title;
    QCollator collator_;
};

} // namespace folivox
