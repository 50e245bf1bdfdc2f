#pragma once

#include "cli/Command.h"

namespace folivox::cli {

// `folivox inspect [--json] FILE...`: the audio format (codec, profile,
// sample rate, channels, bitrate, duration, container), tags, embedded
// chapters and cover of each file. Files that can't be read are reported
// with their reason after the others, and the command then exits 1.
class InspectCommand : public Command {
public:
    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;
};

} // namespace folivox::cli
