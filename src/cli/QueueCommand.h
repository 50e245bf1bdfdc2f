#pragma once

#include "cli/Command.h"

namespace folivox::cli {

// `folivox queue add|list|run|resume|stop|cancel|retry|remove|log`: the
// persistent build queue. `queue run` runs the jobs in the foreground, one
// at a time, with a bar per job, until the queue is empty, stopped or
// halted; the other subcommands act on the queue's file, or, while a run is
// working, on that run at once through its local control channel.
class QueueCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;
};

} // namespace folivox::cli
