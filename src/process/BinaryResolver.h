#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Finds the binary of a helper tool (ffmpeg, ffprobe, mp4tags, mp4art,
// mp4chaps). In each tools directory the file for the running processor
// ("<tool>-x86_64" or "<tool>-arm64") is preferred to the plain "<tool>";
// after the tools directories comes PATH. A binary that replaced the first
// choice after a wrong-architecture launch is remembered for the rest of the
// program and found first.
class BinaryResolver {
public:
    // Uses AppPaths::toolDirectories(): $FOLIVOX_TOOLS_DIR, then
    // <executable dir>/../libexec/folivox, then the executable's own folder.
    BinaryResolver();
    explicit BinaryResolver(QStringList toolsDirectories);

    const QStringList& toolsDirectories() const { return toolsDirectories_; }

    // The binary for the tool, or nothing.
    std::optional<QString> find(const QString& tool) const;
    // As find(), but throws ToolLaunchError::notFound ("<tool> binary not
    // found in app bundle").
    QString resolve(const QString& tool) const;
    // Only the "<tool>-<architecture>" files of the tools directories.
    std::optional<QString> findForArchitecture(const QString& tool, const QString& architecture) const;

    // "x86_64", "arm64", or the processor name Qt reports for anything else.
    static QString currentArchitecture();
    // x86_64 <-> arm64; empty for any other processor.
    static QString otherArchitecture(const QString& architecture);
    // The file name suffix for an architecture: "-x86_64", "-arm64", or empty.
    static QString architectureSuffix(const QString& architecture);
    // The file that stands in for `path` on the other architecture: the same
    // folder with the other suffix (a plain name gets the other suffix added).
    static QString otherArchitecturePath(const QString& path);

    // Keeps `path` as the tool's binary for later lookups in this program.
    static void rememberFallback(const QString& tool, const QString& path);
    static void forgetFallbacks();

private:
    QStringList toolsDirectories_;
};

} // namespace folivox
