#include "container/mp4/MP4MoovEditor.h"

#include "container/mp4/MP4MoovCopyRewriter.h"
#include "container/mp4/MP4MoovReader.h"
#include "platform/Log.h"

#include <QElapsedTimer>
#include <QFileInfo>

namespace folivox {

MP4MoovEditor::Result MP4MoovEditor::edit(const QString& path, const Edit& edit)
{
    QElapsedTimer timer;
    timer.start();
    MP4MoovReader::MoovBuffer moov = MP4MoovReader::read(path);
    MP4BoxTree::Node tree = MP4BoxTree::parse(moov.data);
    if (!edit(tree))
        return {};
    moov.data = MP4BoxTree::serialize(tree);
    QString reason;
    try {
        const MP4MoovRewriter::Plan plan = MP4MoovRewriter::plan(moov, path);
        MP4MoovRewriter::rewrite(plan, path);
        Result r;
        r.route = Route::fastPath;
        r.mode = plan.mode;
        return r;
    } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
        reason = e.description();
    }
    Log::write(QStringLiteral("[AtomsPerf] fallback site=moovEditor reason=") + reason);
    const auto copy = MP4MoovCopyRewriter::rewrite(moov, path);
    Log::write(QStringLiteral("[MP4MoovEditor] '%1' rewritten whole with %2 bytes of room behind the moov (%3) in %4 ms")
                   .arg(QFileInfo(path).fileName())
                   .arg(copy.room)
                   .arg(reason)
                   .arg(timer.elapsed()));
    Result r;
    r.route = Route::fullFile;
    return r;
}

} // namespace folivox
