#pragma once

#include <QString>
#include <QStringList>

namespace folivox {

// User-facing text. Every message shown to a user goes through text(key,
// default) so that a translation table can replace it later; today the
// default text is returned unless an override was installed for the key.
class L10n {
public:
    static QString text(const char* key, const char* defaultText);

    // Fills the printf-style placeholders of a localised text in order:
    // "%@", "%d", "%s", "%ld", "%lld" each take the next argument.
    // "%%" is a literal percent sign.
    static QString format(const QString& pattern, const QStringList& args);

    // Replaces the text of a key (for a translation, or for tests).
    static void setOverride(const QString& key, const QString& text);
    static void clearOverrides();
};

} // namespace folivox
