#pragma once

#include <QString>

namespace folivox {

// Where the library is: the folder given (--library DIR), else the
// environment variable FOLIVOX_LIBRARY, else "Library" in the application
// data folder.
class LibraryLocation {
public:
    static QString root(const QString& given = {});
};

} // namespace folivox
