#include "tools/MoovEditor.h"

#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovCopyRewriter.h"
#include "platform/Log.h"
#include "tools/ToolError.h"

#include <QFileInfo>

#include <algorithm>

namespace folivox {

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

// Box types that may stand at the top level of an MP4 or QuickTime file. The
// first box of a file must be one of them; anything else is not an MP4.
bool isTopLevelType(std::uint32_t t)
{
    static constexpr std::uint32_t kTypes[] = {fc("ftyp"), fc("styp"), fc("moov"), fc("mdat"), fc("free"),
                                               fc("skip"), fc("wide"), fc("pdin"), fc("uuid"), fc("sidx"),
                                               fc("meta"), fc("moof"), fc("mfra"), fc("junk")};
    return std::find(std::begin(kTypes), std::end(kTypes), t) != std::end(kTypes);
}

QString fileLabel(const QString& path)
{
    return QFileInfo(path).fileName();
}

const MP4BoxTree::Node* leafChild(const MP4BoxTree::Node& parent, std::uint32_t type)
{
    const MP4BoxTree::Node* n = parent.child(type);
    return n && !n->isContainer ? n : nullptr;
}
} // namespace

MoovEditor::MoovEditor(const QString& path) : path_(path)
{
    const QString name = fileLabel(path);
    if (!QFileInfo(path).isFile())
        throw ToolError(ToolError::Kind::fileUnreadable, name + QStringLiteral(": no such file"));
    try {
        const MP4File file(path, MP4File::Access::read);
        fileSize_ = file.size();
        if (fileSize_ < 8)
            throw ToolError(ToolError::Kind::notAnMP4, name + QStringLiteral(": not an MP4 file (too short)"));
        topLevel_ = MP4BoxHeader::listTopLevel(file, fileSize_);
        if (topLevel_.isEmpty() || !isTopLevelType(topLevel_.first().typeCode))
            throw ToolError(ToolError::Kind::notAnMP4, name + QStringLiteral(": not an MP4 file"));
        const bool hasMoov = std::any_of(topLevel_.begin(), topLevel_.end(),
                                         [](const MP4BoxHeader& h) { return h.is(fc("moov")); });
        if (!hasMoov)
            throw ToolError(ToolError::Kind::moovUnreadable, name + QStringLiteral(": no moov box found"));
        try {
            buffer_ = MP4MoovReader::read(file);
        } catch (const MP4MoovReader::Error& e) {
            throw ToolError(ToolError::Kind::moovUnreadable, name + QStringLiteral(": cannot read moov: ") + e.description());
        }
    } catch (const MP4FileError& e) {
        throw ToolError(ToolError::Kind::fileUnreadable, e.description());
    }

    try {
        moov_ = MP4BoxTree::parse(buffer_.data);
    } catch (const MP4BoxHeader::ParseError& e) {
        throw ToolError(ToolError::Kind::moovUnreadable, name + QStringLiteral(": moov does not parse: ") + e.description());
    }
    const auto bad = [&](const QString& why) {
        return ToolError(ToolError::Kind::moovUnreadable, name + QStringLiteral(": moov does not parse: ") + why);
    };
    if (!moov_.isContainer)
        throw bad(QStringLiteral("its boxes do not decode"));
    const MP4BoxTree::Node* mvhd = leafChild(moov_, fc("mvhd"));
    if (!mvhd || mvhd->payload.size() < 100)
        throw bad(QStringLiteral("no movie header"));
    if (moov_.count(fc("trak")) == 0)
        throw bad(QStringLiteral("no tracks"));
    int index = 0;
    for (const MP4BoxTree::Node& trak : moov_.children) {
        if (trak.type != fc("trak"))
            continue;
        ++index;
        const MP4BoxTree::Node* mdia = trak.child(fc("mdia"));
        if (!trak.isContainer || !leafChild(trak, fc("tkhd")) || !mdia || !mdia->isContainer
            || !leafChild(*mdia, fc("mdhd")) || !leafChild(*mdia, fc("hdlr")))
            throw bad(QStringLiteral("track %1 is damaged").arg(index));
    }
}

std::optional<MoovEditor::Route> MoovEditor::commit()
{
    const QByteArray bytes = MP4BoxTree::serialize(moov_);
    if (bytes == buffer_.data)
        return std::nullopt;
    buffer_.data = bytes;
    return putBack({});
}

MoovEditor::Route MoovEditor::commitAppending(const QByteArray& mediaBox)
{
    buffer_.data = MP4BoxTree::serialize(moov_);
    return putBack(mediaBox);
}

MoovEditor::Route MoovEditor::putBack(const QByteArray& media)
{
    const QString name = fileLabel(path_);
    QString noRoom;
    try {
        const MP4MoovRewriter::Plan plan = MP4MoovRewriter::plan(buffer_, path_, media, fileSize_);
        MP4MoovRewriter::rewrite(plan, path_);
        return Route::moovOnly;
    } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
        noRoom = e.description();
    } catch (const Error& e) {
        throw ToolError(ToolError::Kind::writeFailed, name + QStringLiteral(": ") + e.description());
    }
    // No free space around the moov for a second copy: write the file anew
    // beside itself, with room for the next edits, and swap it in.
    Log::write(QStringLiteral("[AtomsPerf] fallback site=mp4tools reason=") + noRoom);
    try {
        MP4MoovCopyRewriter::rewrite(buffer_, path_, media, fileSize_);
        return Route::wholeFile;
    } catch (const Error& e) {
        throw ToolError(ToolError::Kind::writeFailed, name + QStringLiteral(": ") + e.description());
    }
}

std::vector<MP4BoxTree::Node*> MoovEditor::tracksWithHandler(std::uint32_t handler)
{
    std::vector<MP4BoxTree::Node*> out;
    for (MP4BoxTree::Node& c : moov_.children)
        if (c.type == fc("trak") && handlerType(c) == handler)
            out.push_back(&c);
    return out;
}

std::uint32_t MoovEditor::handlerType(const MP4BoxTree::Node& trak)
{
    const MP4BoxTree::Node* mdia = trak.child(fc("mdia"));
    const MP4BoxTree::Node* hdlr = mdia ? mdia->child(fc("hdlr")) : nullptr;
    if (!hdlr || hdlr->isContainer || hdlr->payload.size() < 12)
        return 0;
    return MP4Bytes::be32(hdlr->payload.constData() + 8);
}

std::uint32_t MoovEditor::trackID(const MP4BoxTree::Node& trak)
{
    const MP4BoxTree::Node* tkhd = trak.child(fc("tkhd"));
    if (!tkhd || tkhd->isContainer || tkhd->payload.isEmpty())
        return 0;
    const QByteArray& p = tkhd->payload;
    const qsizetype at = p.at(0) == 1 ? 20 : 12;
    return p.size() >= at + 4 ? MP4Bytes::be32(p.constData() + at) : 0;
}

std::uint32_t MoovEditor::trackFlags(const MP4BoxTree::Node& trak)
{
    const MP4BoxTree::Node* tkhd = trak.child(fc("tkhd"));
    if (!tkhd || tkhd->isContainer || tkhd->payload.size() < 4)
        return 0;
    return MP4Bytes::be32(tkhd->payload.constData()) & 0xFFFFFFu;
}

MP4BoxTree::Node* MoovEditor::primaryAudioTrack()
{
    const auto sound = tracksWithHandler(fc("soun"));
    for (MP4BoxTree::Node* t : sound)
        if (trackFlags(*t) & 0x1)
            return t;
    return sound.empty() ? nullptr : sound.front();
}

std::optional<MoovEditor::MediaTime> MoovEditor::mediaTime(const MP4BoxTree::Node& trak)
{
    const MP4BoxTree::Node* mdia = trak.child(fc("mdia"));
    const MP4BoxTree::Node* mdhd = mdia ? mdia->child(fc("mdhd")) : nullptr;
    if (!mdhd || mdhd->isContainer || mdhd->payload.isEmpty())
        return std::nullopt;
    const QByteArray& p = mdhd->payload;
    MediaTime t;
    if (p.at(0) == 1) {
        if (p.size() < 32)
            return std::nullopt;
        t.timescale = MP4Bytes::be32(p.constData() + 20);
        t.duration = MP4Bytes::be64(p.constData() + 24);
    } else {
        if (p.size() < 20)
            return std::nullopt;
        t.timescale = MP4Bytes::be32(p.constData() + 12);
        t.duration = MP4Bytes::be32(p.constData() + 16);
    }
    return t;
}

std::optional<MoovEditor::MovieHeader> MoovEditor::movieHeader() const
{
    const MP4BoxTree::Node* mvhd = moov_.child(fc("mvhd"));
    if (!mvhd || mvhd->isContainer || mvhd->payload.isEmpty())
        return std::nullopt;
    const QByteArray& p = mvhd->payload;
    MovieHeader h;
    h.version = p.at(0);
    if (h.version == 1) {
        if (p.size() < 112)
            return std::nullopt;
        h.creationTime = MP4Bytes::be64(p.constData() + 4);
        h.modificationTime = MP4Bytes::be64(p.constData() + 12);
        h.timescale = MP4Bytes::be32(p.constData() + 20);
        h.duration = MP4Bytes::be64(p.constData() + 24);
        h.nextTrackID = MP4Bytes::be32(p.constData() + 108);
    } else {
        if (p.size() < 100)
            return std::nullopt;
        h.creationTime = MP4Bytes::be32(p.constData() + 4);
        h.modificationTime = MP4Bytes::be32(p.constData() + 8);
        h.timescale = MP4Bytes::be32(p.constData() + 12);
        h.duration = MP4Bytes::be32(p.constData() + 16);
        h.nextTrackID = MP4Bytes::be32(p.constData() + 96);
    }
    return h;
}

bool MoovEditor::setNextTrackID(std::uint32_t next)
{
    MP4BoxTree::Node* mvhd = moov_.child(fc("mvhd"));
    if (!mvhd || mvhd->isContainer || mvhd->payload.isEmpty())
        return false;
    const qsizetype at = mvhd->payload.at(0) == 1 ? 108 : 96;
    if (mvhd->payload.size() < at + 4)
        return false;
    MP4Bytes::put32(mvhd->payload.data() + at, next);
    return true;
}

} // namespace folivox
