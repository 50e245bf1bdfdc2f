#include "build/SourceCover.h"

#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4MoovReader.h"
#include "import/probe/LibavAudioInspector.h"
#include "tools/IlstEditor.h"

#include <QFileInfo>

namespace folivox {

QByteArray SourceCover::embedded(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    if (ext == u"m4b" || ext == u"m4a" || ext == u"mp4") {
        try {
            MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(path).data);
            const QList<IlstEditor::Image> covers = IlstEditor(moov).covers();
            return covers.isEmpty() ? QByteArray() : covers.first().bytes;
        } catch (const std::exception&) {
            // Not a plain MP4 after all: let libav have a look.
        }
    }
    try {
        return LibavAudioInspector().probe(path).coverImage;
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace folivox
