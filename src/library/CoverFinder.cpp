#include "library/CoverFinder.h"

#include "import/probe/LibavAudioInspector.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>

namespace folivox {

namespace {

bool decodes(const QByteArray& bytes)
{
    return !bytes.isEmpty() && !QImage::fromData(bytes).isNull();
}

std::optional<CoverFinder::Cover> readImage(const QFileInfo& file)
{
    QFile f(file.absoluteFilePath());
    if (file.size() > 32 * 1024 * 1024 || !f.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = f.readAll();
    if (!decodes(bytes))
        return std::nullopt;
    return CoverFinder::Cover{bytes, QUrl::fromLocalFile(file.absoluteFilePath())};
}

} // namespace

std::optional<CoverFinder::Cover> CoverFinder::inFolder(const QString& folder)
{
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        return std::nullopt;
    const QFileInfoList images = QDir(folder).entryInfoList(
        {QStringLiteral("*.jpg"), QStringLiteral("*.jpeg"), QStringLiteral("*.png"), QStringLiteral("*.webp"),
         QStringLiteral("*.JPG"), QStringLiteral("*.JPEG"), QStringLiteral("*.PNG")},
        QDir::Files, QDir::Name);
    static const QStringList kNames{QStringLiteral("cover"), QStringLiteral("folder"), QStringLiteral("front"),
                                    QStringLiteral("albumart"), QStringLiteral("album art"), QStringLiteral("albumartlarge")};
    for (const QString& wanted : kNames) {
        for (const QFileInfo& image : images) {
            if (image.completeBaseName().compare(wanted, Qt::CaseInsensitive) == 0) {
                if (auto cover = readImage(image))
                    return cover;
            }
        }
    }
    if (images.size() == 1)
        return readImage(images.first());
    return std::nullopt;
}

std::optional<CoverFinder::Cover> CoverFinder::embedded(const std::vector<Track>& tracks)
{
    if (tracks.empty())
        return std::nullopt;
    const QString path = tracks.front().url.toLocalFile();
    try {
        const QByteArray bytes = LibavAudioInspector().probe(path).coverImage;
        if (decodes(bytes))
            return Cover{bytes, tracks.front().url};
    } catch (const std::exception&) {
        // No picture to be had from this file.
    }
    return std::nullopt;
}

std::optional<CoverFinder::Cover> CoverFinder::find(const QString& folder, const std::vector<Track>& tracks)
{
    if (auto cover = inFolder(folder))
        return cover;
    return embedded(tracks);
}

} // namespace folivox
