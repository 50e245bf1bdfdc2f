#pragma once

#include "support/ScriptedTool.h"

#include <QList>
#include <QTemporaryDir>
#include <QString>
#include <QStringList>

#include <functional>
#include <ostream>

class QMessageBox;
class QWidget;

namespace folivox {
class MainWindow;
}

namespace folivox::test {

// Drives the real window as a user would, for the tests: drops files on a
// widget, waits for the event loop to reach a state, answers message boxes.
class WindowDriver {
public:
    // Sends the drag-enter and drop of these files to a widget; true when
    // the widget took the drop.
    static bool drop(QWidget* target, const QStringList& paths);
    // Runs the event loop until the condition holds; false on timeout.
    static bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 60000);
    // Waits for an import to start and finish.
    static bool waitForImport(MainWindow& window, int timeoutMs = 60000);
    // The message boxes the window has open now.
    static QList<QMessageBox*> alerts(MainWindow& window);
    // Presses the first button of every open message box.
    static void dismissAlerts(MainWindow& window);

    // MP3 tones made by ffmpeg (mono, 64 kbps), one per name, `seconds` long.
    static bool makeMp3s(const QString& folder, const QStringList& names, double seconds);
    // A PNG picture of this size.
    static bool makePng(const QString& path, int width, int height);
    // An MP3 tone (mono, 64 kbps) with `noiseBytes` of junk that is no
    // frame inserted at a frame boundary past its middle: a hole that players
    // skip, of noiseBytes / 8000 seconds.
    static bool makeDamagedMp3(const QString& path, double seconds, int noiseBytes);
    // A folder of `tracks` MP3 tones, and with a cover "cover.png" beside them.
    static bool makeBookFolder(const QString& folder, int tracks, double seconds, bool withCover);
};

// A private application data folder (library, queue, settings) for one test:
// FOLIVOX_HOME points at it while the object lives.
class PrivateHome {
public:
    PrivateHome();
    QString path() const { return dir_.path(); }
    QString filePath(const QString& name) const { return dir_.filePath(name); }

private:
    QTemporaryDir dir_;
    ScopedEnvironment home_;
};

} // namespace folivox::test

// Lets failed checks print Qt strings as text.
inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList& list, std::ostream* out)
{
    *out << '[' << list.join(QStringLiteral(" | ")).toStdString() << ']';
}
