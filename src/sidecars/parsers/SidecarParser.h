#pragma once

#include "sidecars/parsers/SidecarFormat.h"
#include "sidecars/parsers/SidecarParseResult.h"

#include <QString>
#include <QUrl>

namespace folivox {

// One chapter file format. Parsers are stateless and pure: they read no files,
// and they never throw; every fault is a SidecarWarning.
class SidecarParser {
public:
    virtual ~SidecarParser() = default;
    virtual SidecarFormat format() const = 0;
    // How much the text looks like this format, 0 to 100.
    virtual int confidence(const QString& text, const QUrl& url) const = 0;
    virtual SidecarParseResult parse(const QString& text, const QUrl& url) const = 0;
};

} // namespace folivox
