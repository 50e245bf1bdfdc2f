#include "container/MP4MoovEditor.h"

#include "container/MP4BoxHeader.h"
#include "container/MP4Bytes.h"
#include "container/MP4ChunkOffsets.h"
#include "container/MP4File.h"
#include "container/MP4MoovReader.h"
#include "container/SafeFileReplace.h"
#include "platform/Log.h"

#include <QElapsedTimer>
#include <QFileInfo>

namespace folivox {

namespace {
const QString kTag = QStringLiteral("[MP4MoovEditor] ");

MP4MoovEditor::Result fullFile(const QString& path, const MP4MoovEditor::Edit& edit, const QString& reason)
{
    QElapsedTimer timer;
    timer.start();
    const QString name = QFileInfo(path).fileName();
    MP4File source(path, MP4File::Access::read);
    const std::uint64_t size = source.size();
    MP4MoovEditor::Result result;
    if (size >= MP4MoovEditor::fullFileLimit) {
        Log::write(kTag + QStringLiteral("SKIPPED — '%1' is %2 MB, above the 2048 MB limit for the full-file path (%3)")
                              .arg(name)
                              .arg(size >> 20)
                              .arg(reason));
        result.route = MP4MoovEditor::Route::skippedTooLarge;
        return result;
    }
    const MP4MoovReader::MoovBuffer moov = MP4MoovReader::read(source);
    QByteArray file = source.readAt(0, size);
    if (std::uint64_t(file.size()) != size)
        throw MP4FileError(MP4FileError::Kind::readFailed, path, QStringLiteral("file shrank while being read"));
    source.close();

    MP4BoxTree::Node tree = MP4BoxTree::parse(moov.data);
    if (!edit(tree))
        return result;
    const QByteArray edited = MP4BoxTree::serialize(tree);
    const std::int64_t delta = std::int64_t(edited.size()) - std::int64_t(moov.originalSize);
    file.replace(qsizetype(moov.fileOffset), qsizetype(moov.originalSize), edited);
    if (delta != 0) {
        const auto shifted = MP4ChunkOffsets::shift(file, qsizetype(moov.fileOffset), qsizetype(moov.fileOffset) + edited.size(),
                                                    delta, moov.fileOffset + moov.originalSize);
        if (shifted != MP4ChunkOffsets::ShiftResult::shifted) {
            Log::write(kTag + QStringLiteral("chunk offsets of '%1' would overflow — file left untouched").arg(name));
            result.route = MP4MoovEditor::Route::unchanged;
            return result;
        }
    }
    SafeFileReplace::writeWhole(path, file);
    Log::write(kTag + QStringLiteral("'%1' rewritten whole (%2) in %3 ms").arg(name, reason).arg(timer.elapsed()));
    result.route = MP4MoovEditor::Route::fullFile;
    return result;
}
} // namespace

MP4MoovEditor::Result MP4MoovEditor::edit(const QString& path, const Edit& edit)
{
    MP4MoovReader::MoovBuffer moov = MP4MoovReader::read(path);
    MP4BoxTree::Node tree = MP4BoxTree::parse(moov.data);
    if (!edit(tree))
        return {};
    moov.data = MP4BoxTree::serialize(tree);
    QString reason;
    try {
        const MP4MoovRewriter::Plan plan = MP4MoovRewriter::plan(std::move(moov), path);
        MP4MoovRewriter::rewrite(plan, path);
        Result r;
        r.route = Route::fastPath;
        r.mode = plan.mode;
        return r;
    } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
        reason = e.description();
    }
    Log::write(QStringLiteral("[AtomsPerf] fallback site=moovEditor reason=") + reason);
    return fullFile(path, edit, reason);
}

} // namespace folivox
