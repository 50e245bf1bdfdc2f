// The main() of every test program.
#include "support/ChildProcessCheck.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QCoreApplication app(argc, argv);

    // Tests never touch the user's own settings, library or queue.
    QTemporaryDir home(QDir::tempPath() + QStringLiteral("/folivox-test-home-XXXXXX"));
    qputenv("FOLIVOX_HOME", home.path().toUtf8());
    // Each test process gets its own temporary directory, so FolivoxWork
    // folders of tests running side by side never mix and a test can check
    // that its own work was cleaned up.
    QTemporaryDir temp(QDir::tempPath() + QStringLiteral("/folivox-test-tmp-XXXXXX"));
    qputenv("TMPDIR", temp.path().toUtf8());

    const int rc = RUN_ALL_TESTS();
    const int leftovers = folivox::test::reportLeftoverChildren();
    return leftovers > 0 ? 1 : rc;
}
