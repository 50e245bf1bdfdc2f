#pragma once

#include <QString>
#include <QStringList>

namespace folivox::cli {

// Exit statuses of the command line.
enum ExitCode : int {
    ExitSuccess = 0,
    ExitFailure = 1,
    ExitUsage = 2,
    ExitCancelled = 130,
};

// One `folivox` subcommand. run() receives the arguments after the
// subcommand's name and returns the exit status.
class Command {
public:
    virtual ~Command() = default;
    virtual QString name() const = 0;
    virtual QString summary() const = 0;
    virtual QString usage() const = 0;
    virtual int run(const QStringList& args) = 0;
};

} // namespace folivox::cli
