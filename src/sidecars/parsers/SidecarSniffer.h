#pragma once

#include "sidecars/parsers/SidecarFormat.h"

#include <QString>
#include <QUrl>

#include <optional>

namespace folivox {

// A quick classifier used when scanning a folder: fixed rules tried in a fixed
// order, the first format with a score above 0 winning. Its weights differ
// from the parsers' confidence scores on purpose (for example, any ".txt"
// file is taken as mp4chaps with at least 40), so the two are kept apart.
class SidecarSniffer {
public:
    struct Result {
        std::optional<SidecarFormat> format;
        int score = 0;
    };

    Result sniff(const QString& text, const QUrl& url) const;
};

} // namespace folivox
