#include "app/book/ChapterLayouts.h"

#include "import/ImportChapterBuilder.h"

#include <QFileInfo>

namespace folivox {

std::vector<Bookmark> ChapterLayouts::perFile(const std::vector<Track>& tracks)
{
    std::vector<Bookmark> chapters;
    for (const Track& t : tracks) {
        Bookmark b;
        b.title = t.title.isEmpty() ? QFileInfo(t.url.toLocalFile()).completeBaseName() : t.title;
        b.tracks = {t};
        b.duration = t.duration;
        chapters.push_back(std::move(b));
    }
    return chapters;
}

std::vector<Bookmark> ChapterLayouts::fromMarks(const std::vector<Track>& tracks)
{
    return ImportChapterBuilder::build(tracks).chapters;
}

std::vector<Bookmark> ChapterLayouts::afterTrackChange(const std::vector<Bookmark>& chapters,
                                                       const std::vector<Track>& tracks)
{
    for (const Bookmark& b : chapters)
        if (b.tracks.size() != 1)
            return fromMarks(tracks);
    std::vector<Bookmark> result;
    for (const Track& t : tracks)
        for (const Bookmark& b : chapters)
            if (b.tracks.front().id == t.id)
                result.push_back(b);
    return result;
}

} // namespace folivox
