#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"

#include "container/mp4/LanguageCodes.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovReader.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QFileInfo>

#include <optional>

namespace folivox {

namespace {
using Box = MP4ChapterTrackLanguagePatcher::Box;
using PatchError = MP4ChapterTrackLanguagePatcher::PatchError;

constexpr std::uint32_t kMdia = MP4Bytes::fourCC("mdia");
constexpr std::uint32_t kMdhd = MP4Bytes::fourCC("mdhd");
constexpr std::uint32_t kHdlr = MP4Bytes::fourCC("hdlr");

bool isWalkedContainer(std::uint32_t code)
{
    static constexpr std::uint32_t kEntered[] = {
        MP4Bytes::fourCC("moov"), MP4Bytes::fourCC("trak"), MP4Bytes::fourCC("mdia"), MP4Bytes::fourCC("minf"),
        MP4Bytes::fourCC("stbl"), MP4Bytes::fourCC("edts"), MP4Bytes::fourCC("udta"), MP4Bytes::fourCC("moof"),
        MP4Bytes::fourCC("traf"), MP4Bytes::fourCC("mvex"), MP4Bytes::fourCC("dinf")};
    for (std::uint32_t c : kEntered)
        if (c == code)
            return true;
    return false;
}

PatchError malformed(const QString& detail)
{
    return PatchError(PatchError::Kind::malformedAtoms, detail);
}

// The children of the range [from, to) of buf, which belongs to the box named
// owner. Throws malformedAtoms.
QList<Box> children(const QByteArray& buf, qsizetype from, qsizetype to, const QString& owner)
{
    if (from < 0 || to < from || to > buf.size())
        throw malformed(QStringLiteral("box range %1..<%2 outside buffer of %3 bytes").arg(from).arg(to).arg(buf.size()));
    QList<Box> out;
    qsizetype pos = from;
    while (pos < to) {
        MP4BoxHeader h;
        try {
            h = MP4BoxHeader::decodeAt(buf, pos, to);
        } catch (const MP4BoxHeader::ParseError& e) {
            throw malformed(QStringLiteral("'%1' at %2, container ends at %3: %4").arg(owner).arg(pos).arg(to).arg(e.description()));
        }
        out.append(Box{h.type, h.typeCode, pos + qsizetype(h.headerLength), pos + qsizetype(h.size)});
        pos += qsizetype(h.size);
    }
    return out;
}

constexpr int kMaxDepth = 32;

void collect(const QByteArray& buf, const Box& container, QList<MP4ChapterTrackLanguagePatcher::TrackLanguageField>& out,
             int depth = 0)
{
    if (depth > kMaxDepth)
        throw malformed(QStringLiteral("boxes nested deeper than %1 levels").arg(kMaxDepth));
    const QList<Box> kids = children(buf, container.contentStart, container.end, container.type);
    if (container.typeCode == kMdia) {
        std::optional<Box> mdhd;
        std::optional<Box> hdlr;
        for (const Box& b : kids) {
            if (!mdhd && b.typeCode == kMdhd)
                mdhd = b;
            if (!hdlr && b.typeCode == kHdlr)
                hdlr = b;
        }
        if (mdhd && hdlr) {
            if (hdlr->end - hdlr->contentStart < 12)
                throw malformed(QStringLiteral("hdlr box too small for its handler type"));
            const QString handler = MP4Bytes::typeText(MP4Bytes::be32(buf.constData() + hdlr->contentStart + 8));
            if (mdhd->end <= mdhd->contentStart)
                throw malformed(QStringLiteral("mdhd box is empty"));
            const int version = std::uint8_t(buf[mdhd->contentStart]);
            qsizetype at = 0;
            if (version == 0)
                at = mdhd->contentStart + 20;
            else if (version == 1)
                at = mdhd->contentStart + 32;
            else
                throw malformed(QStringLiteral("unknown mdhd version %1").arg(version));
            if (at + 2 > mdhd->end)
                throw malformed(QStringLiteral("mdhd v%1 too small for its language field").arg(version));
            out.append({handler, at, MP4Bytes::be16(buf.constData() + at)});
        }
    }
    for (const Box& b : kids)
        if (isWalkedContainer(b.typeCode))
            collect(buf, b, out, depth + 1);
}
} // namespace

QString MP4ChapterTrackLanguagePatcher::PatchError::description() const
{
    switch (kind_) {
    case Kind::invalidLanguageCode:
        return L10n::format(L10n::text("container.chapterLanguage.invalidCode",
                                       "Invalid ISO 639-2 language code '%@' — expected three lowercase letters"),
                            {detail_});
    case Kind::malformedAtoms:
        return L10n::format(L10n::text("container.chapterLanguage.malformed", "Malformed MP4 atom structure: %@"), {detail_});
    case Kind::moovUnavailable:
        return L10n::format(L10n::text("container.chapterLanguage.moovUnavailable", "Could not read the moov box: %@"),
                            {detail_});
    }
    return {};
}

QList<MP4ChapterTrackLanguagePatcher::TrackLanguageField> MP4ChapterTrackLanguagePatcher::trackLanguageFields(const QByteArray& moov)
{
    MP4BoxHeader top;
    try {
        top = MP4BoxHeader::decodeAt(moov, 0, moov.size());
    } catch (const MP4BoxHeader::ParseError& e) {
        throw malformed(QStringLiteral("'moov' at 0, container ends at %1: %2").arg(moov.size()).arg(e.description()));
    }
    QList<TrackLanguageField> fields;
    collect(moov, Box{top.type, top.typeCode, qsizetype(top.headerLength), qsizetype(top.size)}, fields);
    return fields;
}

int MP4ChapterTrackLanguagePatcher::stamp(const QString& path, const QString& code, const QString& handler)
{
    const auto packed = LanguageCodes::pack(code);
    if (!packed)
        throw PatchError(PatchError::Kind::invalidLanguageCode, code);

    MP4MoovReader::MoovBuffer moov;
    try {
        moov = MP4MoovReader::read(path);
    } catch (const Error& e) {
        throw PatchError(PatchError::Kind::moovUnavailable, e.description());
    }

    QList<TrackLanguageField> targets;
    for (const TrackLanguageField& f : trackLanguageFields(moov.data))
        if (f.handler == handler)
            targets.append(f);
    if (targets.isEmpty())
        return 0;

    MP4File file(path, MP4File::Access::update);
    const std::uint64_t fileSize = file.size();
    char bytes[2];
    MP4Bytes::put16(bytes, *packed);
    for (const TrackLanguageField& f : targets) {
        const std::uint64_t position = moov.fileOffset + std::uint64_t(f.languageOffset);
        if (position + 2 > fileSize)
            throw malformed(QStringLiteral("mdhd language field at %1 lies past end of file").arg(position));
        file.writeAt(position, bytes, 2);
    }
    file.sync();
    file.close();
    return int(targets.size());
}

int MP4ChapterTrackLanguagePatcher::stampChapterTrackNonFatal(const QString& path, const QString& code)
{
    try {
        const int count = stamp(path, code, QStringLiteral("text"));
        if (count == 0)
            Log::write(QStringLiteral("[MetadataWriting] chapter track language: no text track found — nothing to stamp"));
        else
            Log::write(QStringLiteral("[MetadataWriting] chapter track language set to '%1' on %2 track(s) of '%3'")
                           .arg(code)
                           .arg(count)
                           .arg(QFileInfo(path).fileName()));
        return count;
    } catch (const Error& e) {
        Log::write(QStringLiteral("[MetadataWriting] chapter track language FAILED (non-fatal): ") + e.description());
        return -1;
    }
}

} // namespace folivox
