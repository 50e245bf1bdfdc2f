#pragma once

#include "cli/Command.h"

namespace folivox::cli {

// `folivox check [--json] [--repair DIR] FILE|FOLDER...`: MP3 integrity. For
// each MP3 (folders are searched for *.mp3 below them): the verdict, the true
// duration against what the Xing/VBRI header or the TLEN tag claims, every
// hole, the trailing bytes; then a summary line. --repair DIR writes a clean
// copy of every file with holes into DIR.
//
// Exit status: 0 every file is clean; 3 damage was found (every file could
// be checked, and every asked-for repair was written); 1 a file could not be
// checked (unreadable, or no MP3 frames found: verdict unknown) or a repair
// failed; 2 usage; 130 cancelled.
class CheckCommand : public Command {
public:
    static constexpr int ExitDamageFound = 3;

    QString name() const override;
    QString summary() const override;
    QString usage() const override;
    int run(const QStringList& args) override;
};

} // namespace folivox::cli
