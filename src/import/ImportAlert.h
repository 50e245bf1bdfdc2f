#pragma once

#include <QString>

namespace folivox {

// An alert with one button ("alert.button.ok") that ends an import.
struct ImportAlert {
    QString titleKey;
    QString title;
    QString messageKey;
    QString message;

    static const char* buttonKey() { return "alert.button.ok"; }
    // The alert whose texts are keyed "<key>.title" and "<key>.message",
    // with the given English texts where no translation exists.
    static ImportAlert keyed(const QString& key, const char* title, const char* message);
    bool operator==(const ImportAlert&) const = default;
};

} // namespace folivox
