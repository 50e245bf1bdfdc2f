// The mp4tags executable: see TagsCommand for its options.
#include "tools/TagsCommand.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    return folivox::TagsCommand::run(QCoreApplication::arguments().mid(1), out, err);
}
