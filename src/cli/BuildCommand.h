#pragma once

#include "cli/Command.h"

namespace folivox::cli {

// `folivox build [options] INPUT...`: files and folders in, one book out.
// Reads the options (BuildOptionParser), hands the build to BuildUseCase, which
// imports, applies a chapter file, merges tags, picks the cover and runs the
// export, shows its progress on stderr and prints what it made (--json: one
// JSON document on stdout). Ctrl-C or SIGTERM cancels: children stop, no
// partial output is left, a file that stood at the output before is untouched,
// and the exit status is 130.
class BuildCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;
};

} // namespace folivox::cli
