// The mp4chaps executable: see ChapsCommand for its options.
#include "tools/ChapsCommand.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    return folivox::ChapsCommand::run(QCoreApplication::arguments().mid(1), out, err);
}
