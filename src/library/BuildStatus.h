#pragma once

#include "core/book/BookStateDTO.h"

#include <QStringList>

namespace folivox {

// Whether a book's last build still stands: the reasons a rebuild is due,
// none when the output on disk is what the last build of this very state
// made.
class BuildStatus {
public:
    // "never built"; "edited since the last build (revision R, built B)";
    // "export settings changed since the last build"; "output missing: P";
    // "output changed on disk: P" (size or modification time differ).
    static QStringList rebuildReasons(const BookStateDTO& state);
};

} // namespace folivox
