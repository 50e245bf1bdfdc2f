// The mp4art executable: see ArtCommand for its options.
#include "tools/ArtCommand.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    return folivox::ArtCommand::run(QCoreApplication::arguments().mid(1), out, err);
}
