#include "build/OwnOutputFilter.h"

#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4MoovReader.h"
#include "import/ImportCoordinator.h"
#include "tools/IlstEditor.h"

#include <QFileInfo>

namespace folivox {

namespace {

constexpr std::uint32_t kToolAtom = 0xA9746F6F; // "©too"

bool isMp4Book(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    return ext == u"m4b" || ext == u"m4a" || ext == u"mp4";
}

} // namespace

bool OwnOutputFilter::madeByFolivox(const QString& path)
{
    if (!isMp4Book(path))
        return false;
    try {
        MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(path).data);
        const std::optional<QString> tool = IlstEditor(moov).text(kToolAtom);
        return tool && tool->startsWith(QStringLiteral("Folivox"));
    } catch (const std::exception&) {
        return false;
    }
}

OwnOutputFilter::Filtered OwnOutputFilter::apply(const QList<QUrl>& inputs, const std::optional<QString>& output)
{
    Filtered result;
    result.inputs = inputs;
    bool anyFolder = false;
    for (const QUrl& u : inputs)
        anyFolder = anyFolder || QFileInfo(u.toLocalFile()).isDir();
    if (!anyFolder)
        return result;

    const ImportCoordinator::Expansion expansion = ImportCoordinator::expand(inputs);
    const QString outputPath = output ? QFileInfo(*output).absoluteFilePath() : QString();
    // Audiobooks Folivox made are left out only beside other audio: a folder
    // holding nothing but one earlier book is that book.
    int otherAudio = 0;
    QStringList ownBooks;
    for (const QString& path : expansion.audio) {
        if (madeByFolivox(path))
            ownBooks << path;
        else
            ++otherAudio;
    }
    QList<QUrl> kept;
    for (const QString& path : expansion.audio) {
        const bool isOutput = !outputPath.isEmpty() && (path == outputPath || path.startsWith(outputPath + u'/'));
        if (isOutput || (otherAudio > 0 && ownBooks.contains(path)))
            result.leftOut << path;
        else
            kept << QUrl::fromLocalFile(path);
    }
    if (result.leftOut.isEmpty())
        return result;
    for (const QString& v : expansion.video)
        kept << QUrl::fromLocalFile(v);
    for (const QString& s : expansion.sidecars)
        kept << QUrl::fromLocalFile(s);
    result.inputs = kept;
    return result;
}

} // namespace folivox
