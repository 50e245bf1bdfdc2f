#pragma once

#include <QString>

namespace folivox {

struct FindReplaceConfig {
    QString find;
    QString replace;
    bool useRegex = false;
    bool matchCase = false;
};

} // namespace folivox
