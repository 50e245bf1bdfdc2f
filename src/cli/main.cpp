#include "cli/CommandLine.h"
#include "cli/SignalCancellation.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    // First of all, so that a signal in the first instants still cancels.
    folivox::cli::SignalCancellation::install();
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Folivox"));
    QCoreApplication::setApplicationName(QStringLiteral("Folivox"));
    auto commandLine = folivox::cli::makeFolivoxCommandLine();
    return commandLine->run(QCoreApplication::arguments().mid(1));
}
