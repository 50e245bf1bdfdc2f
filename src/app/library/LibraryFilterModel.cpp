#include "app/library/LibraryFilterModel.h"

#include "app/library/LibraryModel.h"
#include "platform/L10n.h"

#include <QDateTime>
#include <QLocale>

namespace folivox {

LibraryFilterModel::LibraryFilterModel(QObject* parent)
    : QSortFilterProxyModel(parent)
    , collator_(QLocale::system().language() == QLocale::C ? QLocale(QLocale::English) : QLocale::system())
{
    collator_.setNumericMode(true);
    collator_.setCaseSensitivity(Qt::CaseInsensitive);
    setDynamicSortFilter(true);
    sort(0);
}

QString LibraryFilterModel::orderName(Order order)
{
    switch (order) {
    case Order::title: return L10n::text("app.library.order.title", "Title");
    case Order::author: return L10n::text("app.library.order.author", "Author");
    case Order::recentlyAdded: return L10n::text("app.library.order.added", "Recently Added");
    case Order::recentlyEdited: return L10n::text("app.library.order.edited", "Recently Edited");
    case Order::length: return L10n::text("app.library.order.length", "Length");
    }
    return {};
}

void LibraryFilterModel::setSearch(const QString& text)
{
    if (text == search_)
        return;
    search_ = text;
    words_ = text.toLower().split(u' ', Qt::SkipEmptyParts);
    invalidateFilter();
}

void LibraryFilterModel::setOrder(Order order)
{
    if (order == order_)
        return;
    order_ = order;
    invalidate();
    sort(0);
}

bool LibraryFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const
{
    if (words_.isEmpty())
        return true;
    const QString text = sourceModel()->index(sourceRow, 0, sourceParent).data(LibraryModel::SearchTextRole).toString();
    for (const QString& w : words_)
        if (!text.contains(w))
            return false;
    return true;
}

bool LibraryFilterModel::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const QModelIndex l = left.siblingAtColumn(0);
    const QModelIndex r = right.siblingAtColumn(0);
    const auto byTitle = [&] {
        const int c = collator_.compare(l.data(Qt::DisplayRole).toString(), r.data(Qt::DisplayRole).toString());
        return c != 0 ? c < 0 : l.row() < r.row();
    };
    switch (order_) {
    case Order::title: return byTitle();
    case Order::author: {
        const int c = collator_.compare(l.data(LibraryModel::AuthorRole).toString(), r.data(LibraryModel::AuthorRole).toString());
        return c != 0 ? c < 0 : byTitle();
    }
    case Order::recentlyAdded: {
        const QDateTime a = l.data(LibraryModel::CreatedRole).toDateTime(), b = r.data(LibraryModel::CreatedRole).toDateTime();
        return a != b ? a > b : byTitle();
    }
    case Order::recentlyEdited: {
        const QDateTime a = l.data(LibraryModel::EditedRole).toDateTime(), b = r.data(LibraryModel::EditedRole).toDateTime();
        return a != b ? a > b : byTitle();
    }
    case Order::length: {
        const double a = l.data(LibraryModel::DurationRole).toDouble(), b = r.data(LibraryModel::DurationRole).toDouble();
        return a != b ? a < b : byTitle();
    }
    }
    return byTitle();
}

} // namespace folivox
