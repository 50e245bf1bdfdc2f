#pragma once

#include <QString>
#include <QStringList>

namespace folivox {

// Where Folivox keeps its files.
class AppPaths {
public:
    // The application-support folder: $FOLIVOX_HOME when set, otherwise the
    // platform's per-user application data folder. Created on first use.
    static QString appSupportDir();

    // The root of temporary work: <temp>/FolivoxWork. Created on first use.
    static QString workRoot();

    // The folder of locks that every Folivox process of this user shares,
    // whatever its TMPDIR or FOLIVOX_HOME: $XDG_RUNTIME_DIR/folivox, else
    // /tmp/folivox-<uid> (made private to the user). Created on first use.
    static QString lockDir();

    // The folder where Folivox's helper tools (mp4tags, mp4art, mp4chaps) are
    // looked up: $FOLIVOX_TOOLS_DIR, else <executable dir>/../libexec/folivox,
    // else the executable's own folder (a build tree).
    static QStringList toolDirectories();
};

} // namespace folivox
