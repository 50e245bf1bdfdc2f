#pragma once

#include "cli/Command.h"

namespace folivox::cli {

// `folivox rename [options] TITLE...` or `--from FILE`: runs chapter titles
// through the batch rename pipeline and prints the results, one a line (or a
// JSON document with --json). --from reads one title a line from a text file.
class RenameCommand : public Command {
public:
    QString name() const override { return QStringLiteral("rename"); }
    QString summary() const override { return QStringLiteral("batch-rename chapter titles"); }
    QString usage() const override;
    int run(const QStringList& args) override;
};

} // namespace folivox::cli
