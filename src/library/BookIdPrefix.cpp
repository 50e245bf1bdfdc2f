#include "library/BookIdPrefix.h"

#include "platform/Error.h"
#include "platform/L10n.h"

#include <QStringList>

namespace folivox {

namespace {
QString canonical(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}
} // namespace

QString BookIdPrefix::shortForm(const QUuid& id)
{
    return canonical(id).left(8);
}

QUuid BookIdPrefix::resolve(const QString& text, const QList<QUuid>& ids, const std::function<QString(const QUuid&)>& describe)
{
    QString wanted = text.trimmed().toUpper();
    if (wanted.startsWith(u'{'))
        wanted.remove(0, 1);
    if (wanted.endsWith(u'}'))
        wanted.chop(1);
    if (wanted.isEmpty())
        throw GenericError(L10n::text("library.id.empty", "No book ID given."));
    QList<QUuid> matches;
    for (const QUuid& id : ids) {
        if (canonical(id).startsWith(wanted))
            matches << id;
    }
    if (matches.size() == 1)
        return matches.first();
    if (matches.isEmpty())
        throw GenericError(L10n::format(L10n::text("library.id.none", "No book in the library has an ID starting with %@."),
                                        {text}));
    QStringList names;
    for (const QUuid& id : matches)
        names << (describe ? describe(id) : canonical(id));
    throw GenericError(L10n::format(L10n::text("library.id.ambiguous",
                                               "The ID %@ fits %d books: %@. Give more of the ID."),
                                    {text, QString::number(matches.size()), names.join(QStringLiteral("; "))}));
}

} // namespace folivox
