#pragma once

#include "cli/Command.h"

#include <memory>
#include <vector>

namespace folivox::cli {

// Dispatches `folivox <subcommand> ...` to the registered commands and answers
// the program-wide options (--help, --version). Subcommands whose work has not
// been built yet are listed and answer "not available yet" with the usage
// exit status.
class CommandLine {
public:
    CommandLine();
    ~CommandLine();

    void add(std::unique_ptr<Command> command);
    // Registers a name that exists in the command-line contract but is not
    // implemented in this build.
    void addPending(const QString& name, const QString& summary);

    int run(const QStringList& args);
    QString helpText() const;

private:
    std::vector<std::unique_ptr<Command>> commands_;
    std::vector<std::pair<QString, QString>> pending_;
};

// The command line with every subcommand this build offers.
std::unique_ptr<CommandLine> makeFolivoxCommandLine();

} // namespace folivox::cli
