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
    bool operator==(const ImportAlert&) const = default;
};

} // namespace folivox
