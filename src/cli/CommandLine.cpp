#include "cli/CommandLine.h"

#include "cli/Console.h"

namespace folivox::cli {

CommandLine::CommandLine() = default;
CommandLine::~CommandLine() = default;

void CommandLine::add(std::unique_ptr<Command> command)
{
    commands_.push_back(std::move(command));
}

void CommandLine::addPending(const QString& name, const QString& summary)
{
    pending_.emplace_back(name, summary);
}

QString CommandLine::helpText() const
{
    QString text = QStringLiteral("Usage: folivox <command> [options]\n\n"
                                  "Turns audio files into a finished audiobook.\n\nCommands:\n");
    for (const auto& c : commands_)
        text += QStringLiteral("  %1 %2\n").arg(c->name(), -10).arg(c->summary());
    for (const auto& [name, summary] : pending_)
        text += QStringLiteral("  %1 %2 (not available yet)\n").arg(name, -10).arg(summary);
    text += QStringLiteral("\nRun 'folivox <command> --help' (or 'folivox help <command>') for a command's options.\n"
                           "  -h, --help     show this text\n  -V, --version  show the version\n");
    return text;
}

int CommandLine::run(const QStringList& args)
{
    if (args.isEmpty()) {
        Console::err(helpText());
        return ExitUsage;
    }
    const QString first = args.first();
    if (first == u"help" && args.size() > 1) {
        // "folivox help build" is "folivox build --help".
        return run({args[1], QStringLiteral("--help")});
    }
    if (first == u"--help" || first == u"-h" || first == u"help") {
        Console::out(helpText());
        return ExitSuccess;
    }
    if (first == u"--version" || first == u"-V") {
        Console::out(QStringLiteral("folivox %1\n").arg(QStringLiteral(FOLIVOX_VERSION)));
        return ExitSuccess;
    }
    const QStringList rest = args.mid(1);
    for (const auto& c : commands_) {
        if (c->name() != first)
            continue;
        if (rest.contains(QStringLiteral("--help")) || rest.contains(QStringLiteral("-h"))) {
            Console::out(c->usage());
            return ExitSuccess;
        }
        return c->run(rest);
    }
    for (const auto& [name, summary] : pending_) {
        if (name == first) {
            Console::err(QStringLiteral("folivox %1: not available yet\n").arg(name));
            return ExitUsage;
        }
    }
    Console::err(QStringLiteral("folivox: unknown command '%1'\n\n").arg(first) + helpText());
    return ExitUsage;
}

} // namespace folivox::cli
