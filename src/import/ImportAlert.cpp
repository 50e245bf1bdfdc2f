#include "import/ImportAlert.h"

#include "platform/L10n.h"

namespace folivox {

ImportAlert ImportAlert::keyed(const QString& key, const char* title, const char* message)
{
    ImportAlert a;
    a.titleKey = key + QStringLiteral(".title");
    a.title = L10n::text(a.titleKey.toUtf8().constData(), title);
    a.messageKey = key + QStringLiteral(".message");
    a.message = L10n::text(a.messageKey.toUtf8().constData(), message);
    return a;
}

} // namespace folivox
