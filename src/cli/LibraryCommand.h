#pragma once

#include "cli/Command.h"

namespace folivox::cli {

// `folivox library list|add|show|remove|restore|empty-trash`: the library of
// books. The library is --library DIR, else $FOLIVOX_LIBRARY, else "Library"
// in the application data folder. A book is named by its ID or any prefix
// of it that fits one book only.
class LibraryCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;
};

} // namespace folivox::cli
