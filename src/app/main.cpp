// folivox-app: the desktop window.
#include "app/book/OpenBook.h"
#include "app/library/LibraryController.h"
#include "app/playback/BookPlayer.h"
#include "app/views/MainWindow.h"
#include "platform/L10n.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>

int main(int argc, char** argv)
{
    folivox::BookPlayer::preferFFmpegBackend();
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Folivox"));
    QApplication::setApplicationName(QStringLiteral("Folivox"));
    QApplication::setApplicationVersion(QStringLiteral(FOLIVOX_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("folivox-app"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        folivox::L10n::text("app.cli.description", "Folivox: turn audio files into a chaptered audiobook."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("files"),
                                 folivox::L10n::text("app.cli.files", "Audio files or folders to open."),
                                 QStringLiteral("[FILE...]"));
    parser.process(app);

    folivox::MainWindow window;
    const QStringList files = parser.positionalArguments();
    if (files.isEmpty()) {
        window.restoreWorkingState();
    } else {
        QStringList paths;
        for (const QString& f : files)
            paths << QFileInfo(f).absoluteFilePath();
        window.openPaths(paths);
    }
    // With no book to show, the window opens on the library's shelf.
    if (window.book().isEmpty() && !window.library().summaries().empty())
        window.showView(folivox::MainWindow::View::library);
    window.show();
    return app.exec();
}
