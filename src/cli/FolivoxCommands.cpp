#include "cli/CommandLine.h"

namespace folivox::cli {

std::unique_ptr<CommandLine> makeFolivoxCommandLine()
{
    auto cl = std::make_unique<CommandLine>();
    cl->addPending(QStringLiteral("build"), QStringLiteral("build one book from audio files and folders"));
    cl->addPending(QStringLiteral("inspect"), QStringLiteral("show the format, tags and chapters of audio files"));
    cl->addPending(QStringLiteral("chapters"), QStringLiteral("parse a chapter file, optionally against audio"));
    cl->addPending(QStringLiteral("rename"), QStringLiteral("batch-rename chapter titles"));
    cl->addPending(QStringLiteral("update"), QStringLiteral("rewrite a finished book's tags in place"));
    cl->addPending(QStringLiteral("check"), QStringLiteral("check MP3 files for damage"));
    cl->addPending(QStringLiteral("queue"), QStringLiteral("persistent build queue"));
    cl->addPending(QStringLiteral("library"), QStringLiteral("the library of books"));
    cl->addPending(QStringLiteral("demo"), QStringLiteral("build a short sample book"));
    return cl;
}

} // namespace folivox::cli
