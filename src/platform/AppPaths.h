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

    // The folder where Folivox's helper tools (mp4tags, mp4art, mp4chaps) are
    // looked up: $FOLIVOX_TOOLS_DIR, else <executable dir>/../libexec/folivox,
    // else the executable's own folder (a build tree).
    static QStringList toolDirectories();
};

} // namespace folivox
