#include "cli/CommandLine.h"
#include "cli/SignalCancellation.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Folivox"));
    QCoreApplication::setApplicationName(QStringLiteral("Folivox"));
    folivox::cli::SignalCancellation::install();
    auto commandLine = folivox::cli::makeFolivoxCommandLine();
    return commandLine->run(QCoreApplication::arguments().mid(1));
}
