// The main() of the application's test programs: the shared test main's
// private home, temporary folder and child check, with a QApplication (the
// widgets need one) on the offscreen platform unless another is asked for.
#include "app/playback/BookPlayer.h"
#include "support/ChildProcessCheck.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    folivox::BookPlayer::preferFFmpegBackend();
    QApplication app(argc, argv);

    QTemporaryDir home(QDir::tempPath() + QStringLiteral("/folivox-test-home-XXXXXX"));
    qputenv("FOLIVOX_HOME", home.path().toUtf8());
    QTemporaryDir temp(QDir::tempPath() + QStringLiteral("/folivox-test-tmp-XXXXXX"));
    qputenv("TMPDIR", temp.path().toUtf8());

    const int rc = RUN_ALL_TESTS();
    const int leftovers = folivox::test::reportLeftoverChildren();
    return leftovers > 0 ? 1 : rc;
}
