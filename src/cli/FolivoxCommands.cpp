#include "cli/BuildCommand.h"
#include "cli/CheckCommand.h"
#include "cli/CommandLine.h"
#include "cli/DemoCommand.h"
#include "cli/InspectCommand.h"
#include "cli/LibraryCommand.h"
#include "cli/QueueCommand.h"
#include "cli/ChaptersCommand.h"
#include "cli/RenameCommand.h"
#include "cli/UpdateCommand.h"

namespace folivox::cli {

std::unique_ptr<CommandLine> makeFolivoxCommandLine()
{
    auto cl = std::make_unique<CommandLine>();
    cl->add(std::make_unique<BuildCommand>());
    cl->add(std::make_unique<InspectCommand>());
    cl->add(std::make_unique<ChaptersCommand>());
    cl->add(std::make_unique<RenameCommand>());
    cl->add(std::make_unique<UpdateCommand>());
    cl->add(std::make_unique<CheckCommand>());
    cl->add(std::make_unique<QueueCommand>());
    cl->add(std::make_unique<LibraryCommand>());
    cl->add(std::make_unique<DemoCommand>());
    return cl;
}

} // namespace folivox::cli
