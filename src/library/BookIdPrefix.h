#pragma once

#include <QList>
#include <QString>
#include <QUuid>

#include <functional>

namespace folivox {

// Finds a book by its id or by the start of it, as git accepts a short
// hash: case and braces don't matter, and a prefix must match exactly one
// book. Throws GenericError saying what matched when none or several do.
class BookIdPrefix {
public:
    // describe: a short text for a book in the "several match" message.
    static QUuid resolve(const QString& text, const QList<QUuid>& ids,
                         const std::function<QString(const QUuid&)>& describe = {});
    // The short form shown in lists: the first 8 hex digits.
    static QString shortForm(const QUuid& id);
};

} // namespace folivox
