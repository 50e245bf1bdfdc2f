#pragma once

#include <QIcon>

namespace folivox {

// The program's icon, drawn in code (the same picture as the installed
// folivox.svg) so that the window needs no image plugin.
class AppIcon {
public:
    static QIcon icon();
};

} // namespace folivox
