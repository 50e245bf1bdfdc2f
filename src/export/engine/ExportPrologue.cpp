#include "export/engine/ExportPrologue.h"

#include "platform/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

namespace folivox {

namespace {

void addTrackIdentities(QSet<QString>& set, const std::vector<Track>& tracks)
{
    for (const Track& t : tracks) {
        if (t.url.isLocalFile())
            set.insert(ExportPrologue::identity(t.url.toLocalFile()));
    }
}

} // namespace

ExportPrologue ExportPrologue::make(std::vector<Bookmark> bookmarks, BookMetadata metadata, ExportSettings settings,
                                    const std::vector<Track>& tracks)
{
    ExportPrologue p;
    p.bookmarks = std::move(bookmarks);
    p.metadata = std::move(metadata);
    p.settings = settings;
    p.tempDir = QDir(AppPaths::workRoot()).filePath(p.exportId.toString(QUuid::WithoutBraces).toUpper());
    addTrackIdentities(p.protectedSourceIdentities, tracks);
    for (const Bookmark& b : p.bookmarks)
        addTrackIdentities(p.protectedSourceIdentities, b.tracks);
    return p;
}

QString ExportPrologue::identity(const QString& path)
{
    // A path that names a file through ".." resolves like any other.
    const QString clean = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    struct stat st {};
    if (::stat(QFile::encodeName(clean).constData(), &st) == 0 || ::stat(QFile::encodeName(path).constData(), &st) == 0)
        return QStringLiteral("%1:%2").arg(quint64(st.st_dev)).arg(quint64(st.st_ino));
    return clean;
}

bool ExportPrologue::isProtected(const QString& path, const QSet<QString>& identities)
{
    return !identities.isEmpty() && identities.contains(identity(path));
}

} // namespace folivox
