#include "container/mp4/MP4LanguageAtomWriter.h"

#include "container/mp4/LanguageCodes.h"
#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4ChunkOffsets.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4MoovReader.h"
#include "container/mp4/MP4MoovCopyRewriter.h"
#include "container/mp4/MP4MoovRewriter.h"
#include "container/io/SafeFileReplace.h"
#include "platform/Log.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <functional>

namespace folivox {

namespace {
constexpr std::uint32_t kMoov = MP4Bytes::fourCC("moov");
constexpr std::uint32_t kUdta = MP4Bytes::fourCC("udta");
constexpr std::uint32_t kMeta = MP4Bytes::fourCC("meta");
constexpr std::uint32_t kIlst = MP4Bytes::fourCC("ilst");
constexpr std::uint32_t kTrak = MP4Bytes::fourCC("trak");
constexpr std::uint32_t kMdia = MP4Bytes::fourCC("mdia");
constexpr std::uint32_t kMdhd = MP4Bytes::fourCC("mdhd");
constexpr std::uint32_t kFreeform = MP4Bytes::fourCC("----");
constexpr std::uint32_t kName = MP4Bytes::fourCC("name");
constexpr std::uint32_t kLanguageItem = 0xA96C616E; // "\xA9lan"

const QString kTag = QStringLiteral("[MP4LanguageAtomWriter] ");

using BoxRef = MP4LanguageAtomWriter::BoxRef;

BoxRef refFor(const MP4BoxHeader& h, qsizetype offset)
{
    qsizetype content = offset + qsizetype(h.headerLength);
    if (h.is(kMeta))
        content += 4;
    return BoxRef{h.type, offset, qsizetype(h.size), content};
}

// The first child of parent whose type is code.
std::optional<BoxRef> childOf(const QByteArray& buf, const BoxRef& parent, std::uint32_t code)
{
    const qsizetype end = std::min<qsizetype>(parent.offset + parent.size, buf.size());
    qsizetype pos = parent.contentOffset;
    try {
        while (pos + 8 <= end) {
            const MP4BoxHeader h = MP4BoxHeader::decodeAt(buf, pos, end);
            if (h.is(code))
                return refFor(h, pos);
            pos += qsizetype(h.size);
        }
    } catch (const MP4BoxHeader::ParseError&) {
    }
    return std::nullopt;
}

std::optional<BoxRef> moovRef(const QByteArray& buf, qsizetype moovOffset)
{
    try {
        const MP4BoxHeader h = MP4BoxHeader::decodeAt(buf, moovOffset, buf.size());
        if (h.is(kMoov))
            return refFor(h, moovOffset);
    } catch (const MP4BoxHeader::ParseError&) {
    }
    return std::nullopt;
}

// Adds delta to a box's stored size following the rules for each size form.
void adjustStoredSize(QByteArray& buf, qsizetype offset, std::int64_t delta)
{
    if (offset + 8 > buf.size())
        return;
    char* p = buf.data() + offset;
    const std::uint32_t stored = MP4Bytes::be32(p);
    if (stored == 0)
        return; // runs to the end of its container; still true
    if (stored == 1) {
        if (offset + 16 <= buf.size())
            MP4Bytes::put64(p + 8, std::uint64_t(std::int64_t(MP4Bytes::be64(p + 8)) + delta));
        return;
    }
    const std::int64_t next = std::int64_t(stored) + delta;
    if (next >= 1 && next <= std::int64_t(0xFFFFFFFFu))
        MP4Bytes::put32(p, std::uint32_t(next));
}

// Replaces every child of ilst that matches with newAtom, appended at the end
// of ilst. Returns the growth, or nothing when there is no ilst.
std::optional<std::int64_t> replaceInIlst(QByteArray& buf, qsizetype moovOffset, const QByteArray& newAtom,
                                          const std::function<bool(const MP4BoxHeader&, qsizetype)>& matches)
{
    const QList<BoxRef> path = MP4LanguageAtomWriter::ilstPath(buf, moovOffset);
    if (path.size() < 4)
        return std::nullopt;
    const BoxRef& ilst = path.last();
    const qsizetype ilstEnd = std::min<qsizetype>(ilst.offset + ilst.size, buf.size());

    QList<std::pair<qsizetype, qsizetype>> doomed; // offset, size
    qsizetype pos = ilst.contentOffset;
    try {
        while (pos + 8 <= ilstEnd) {
            const MP4BoxHeader h = MP4BoxHeader::decodeAt(buf, pos, ilstEnd);
            if (matches(h, pos))
                doomed.append({pos, qsizetype(h.size)});
            pos += qsizetype(h.size);
        }
    } catch (const MP4BoxHeader::ParseError&) {
        // Items behind damage are left alone.
    }
    qsizetype removed = 0;
    for (auto it = doomed.crbegin(); it != doomed.crend(); ++it) {
        buf.remove(it->first, it->second);
        removed += it->second;
    }
    buf.insert(ilstEnd - removed, newAtom);
    const std::int64_t delta = std::int64_t(newAtom.size()) - std::int64_t(removed);
    if (delta != 0)
        for (const BoxRef& b : path)
            adjustStoredSize(buf, b.offset, delta);
    return delta;
}

QString seconds(qint64 ms)
{
    return QString::asprintf("%.2f", double(ms) / 1000.0);
}

// One in-memory edit of a moov that starts at moovOffset: returns the labels
// applied and adds the growth to delta.
using EditFn = std::function<QStringList(QByteArray& buf, qsizetype moovOffset, std::int64_t& delta)>;

struct Site {
    QString name;       // "writeLanguage" or "writeFreeform"
    QString freeformName; // set for the freeform-only caller
};

// The full-file path: the same edits on the moov, then the whole file
// written anew beside itself, streamed, with room behind the moov and the
// chunk offsets behind it shifted, and swapped in with one rename.
QStringList fullFilePath(const QString& path, const EditFn& edit)
{
    QElapsedTimer timer;
    timer.start();
    const QString name = QFileInfo(path).fileName();
    std::uint64_t size = 0;
    {
        const MP4File source(path, MP4File::Access::read);
        size = source.size();
    }
    if (size >= MP4LanguageAtomWriter::fullFileLimit) {
        Log::write(kTag + QStringLiteral("SKIPPED — '%1' is %2 MB, above the 2048 MB limit for the full-file path; language atoms not written")
                              .arg(name)
                              .arg(size >> 20));
        return {};
    }
    MP4MoovReader::MoovBuffer moov;
    try {
        moov = MP4MoovReader::read(path);
    } catch (const MP4MoovReader::Error&) {
        Log::write(kTag + QStringLiteral("no moov in '%1' — nothing written on full-file path").arg(name));
        return {};
    }
    std::int64_t delta = 0;
    const QStringList labels = edit(moov.data, 0, delta);
    if (labels.isEmpty()) {
        Log::write(kTag + QStringLiteral("nothing written on full-file path — file left untouched"));
        return {};
    }
    try {
        MP4MoovCopyRewriter::rewrite(moov, path);
    } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
        Log::write(kTag + QStringLiteral("'%1' left untouched: %2").arg(name, e.description()));
        return {};
    }
    Log::write(kTag + QStringLiteral("%1 written via full-file path in %2s").arg(labels.join(u'+'), seconds(timer.elapsed())));
    return labels;
}

QStringList run(const QString& path, const EditFn& edit, const Site& site)
{
    QElapsedTimer timer;
    timer.start();
    QString failure;
    bool unsupportedLayout = false;
    try {
        MP4MoovReader::MoovBuffer moov = MP4MoovReader::read(path);
        std::int64_t delta = 0;
        const QStringList labels = edit(moov.data, 0, delta);
        if (labels.isEmpty())
            return {};
        const MP4MoovRewriter::Plan plan = MP4MoovRewriter::plan(std::move(moov), path);
        MP4MoovRewriter::rewrite(plan, path);
        Log::write(kTag + QStringLiteral("%1 written via fast path in %2s").arg(labels.join(u'+'), seconds(timer.elapsed())));
        return labels;
    } catch (const MP4MoovRewriter::UnsupportedLayout& e) {
        failure = e.description();
        unsupportedLayout = true;
    } catch (const MP4MoovReader::Error& e) {
        failure = e.description();
    } catch (const MP4FileError& e) {
        // Reading or planning failed before anything was written.
        failure = e.description();
    }

    if (site.freeformName.isEmpty()) {
        Log::write(kTag + QStringLiteral("Fast path failed (%1), using full-file path").arg(failure));
    } else if (unsupportedLayout) {
        Log::write(kTag + QStringLiteral("moov-only rewrite not possible for '%1' via full-file path").arg(site.freeformName));
    } else {
        Log::write(kTag + QStringLiteral("freeform %1 fast path failed (%2), full-file fallback").arg(site.freeformName, failure));
    }
    Log::write(QStringLiteral("[AtomsPerf] fallback site=%1 reason=%2").arg(site.name, failure));
    return fullFilePath(path, edit);
}
} // namespace

QByteArray MP4LanguageAtomWriter::languageAtom(const QString& text)
{
    QString cut;
    qsizetype characters = 0;
    for (qsizetype i = 0; i < text.size() && characters < languageTextMaxCharacters; ++characters) {
        const qsizetype width = (text[i].isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) ? 2 : 1;
        cut += text.mid(i, width);
        i += width;
    }
    const QByteArray b = cut.toUtf8();
    const auto n = std::uint32_t(b.size());
    return MP4Bytes::be32Bytes(n + 24) + MP4Bytes::be32Bytes(kLanguageItem) + MP4Bytes::be32Bytes(n + 16)
        + QByteArrayLiteral("data") + MP4Bytes::be32Bytes(1) + MP4Bytes::be32Bytes(0) + b;
}

QByteArray MP4LanguageAtomWriter::utf8Prefix(const QString& value, qsizetype maxBytes)
{
    QByteArray bytes = value.toUtf8();
    if (bytes.size() <= maxBytes)
        return bytes;
    qsizetype cut = std::max<qsizetype>(maxBytes, 0);
    // Step back while the first byte left out continues a character.
    while (cut > 0 && (std::uint8_t(bytes[cut]) & 0xC0) == 0x80)
        --cut;
    bytes.truncate(cut);
    return bytes;
}

QByteArray MP4LanguageAtomWriter::freeformAtom(const FreeformTag& tag)
{
    static const QByteArray mean("com.apple.iTunes");
    const QByteArray name = tag.name.toUtf8();
    const QByteArray value = utf8Prefix(tag.value, tag.maxValueBytes);
    const QByteArray body = MP4Bytes::be32Bytes(std::uint32_t(12 + mean.size())) + QByteArrayLiteral("mean")
        + MP4Bytes::be32Bytes(0) + mean + MP4Bytes::be32Bytes(std::uint32_t(12 + name.size())) + QByteArrayLiteral("name")
        + MP4Bytes::be32Bytes(0) + name + MP4Bytes::be32Bytes(std::uint32_t(16 + value.size())) + QByteArrayLiteral("data")
        + MP4Bytes::be32Bytes(1) + MP4Bytes::be32Bytes(0) + value;
    return MP4Bytes::be32Bytes(std::uint32_t(8 + body.size())) + QByteArrayLiteral("----") + body;
}

QList<MP4LanguageAtomWriter::BoxRef> MP4LanguageAtomWriter::ilstPath(const QByteArray& buffer, qsizetype moovOffset)
{
    QList<BoxRef> path;
    auto current = moovRef(buffer, moovOffset);
    if (!current)
        return path;
    path.append(*current);
    for (std::uint32_t code : {kUdta, kMeta, kIlst}) {
        current = childOf(buffer, *current, code);
        if (!current)
            break;
        path.append(*current);
    }
    return path;
}

std::optional<std::int64_t> MP4LanguageAtomWriter::placeLanguageAtom(QByteArray& buffer, qsizetype moovOffset, const QString& text)
{
    const auto delta = replaceInIlst(buffer, moovOffset, languageAtom(text),
                                     [](const MP4BoxHeader& h, qsizetype) { return h.typeCode == kLanguageItem; });
    if (!delta)
        Log::write(kTag + QStringLiteral("ilst box not found in moov buffer, skipping ©lan"));
    return delta;
}

std::optional<std::int64_t> MP4LanguageAtomWriter::placeFreeformAtom(QByteArray& buffer, qsizetype moovOffset,
                                                                     const FreeformTag& tag)
{
    const QByteArray wanted = tag.name.toUtf8();
    const auto matches = [&buffer, &wanted](const MP4BoxHeader& h, qsizetype pos) {
        if (!h.is(kFreeform))
            return false;
        const qsizetype end = pos + qsizetype(h.size);
        qsizetype p = pos + qsizetype(h.headerLength);
        try {
            while (p + 8 <= end) {
                const MP4BoxHeader c = MP4BoxHeader::decodeAt(buffer, p, end);
                if (c.is(kName) && c.size >= c.headerLength + 4) {
                    const qsizetype payload = p + qsizetype(c.headerLength) + 4;
                    if (buffer.mid(payload, p + qsizetype(c.size) - payload) == wanted)
                        return true;
                }
                p += qsizetype(c.size);
            }
        } catch (const MP4BoxHeader::ParseError&) {
        }
        return false;
    };
    const auto delta = replaceInIlst(buffer, moovOffset, freeformAtom(tag), matches);
    if (!delta)
        Log::write(kTag + QStringLiteral("ilst box not found in moov buffer, skipping freeform ") + tag.name);
    return delta;
}

bool MP4LanguageAtomWriter::setAudioLanguage(QByteArray& buffer, qsizetype moovOffset, const QString& code)
{
    const QString lowered = code.toLower();
    const auto packed = LanguageCodes::pack(lowered);
    if (!packed) {
        Log::write(kTag + QStringLiteral("Invalid ISO 639-2 code '%1', skipping mdhd").arg(code));
        return false;
    }
    std::optional<BoxRef> box = moovRef(buffer, moovOffset);
    for (std::uint32_t step : {kTrak, kMdia, kMdhd}) {
        if (!box)
            break;
        box = childOf(buffer, *box, step);
    }
    if (!box) {
        Log::write(kTag + QStringLiteral("mdhd box not found, skipping"));
        return false;
    }
    const qsizetype end = std::min<qsizetype>(box->offset + box->size, buffer.size());
    if (box->contentOffset >= end) {
        Log::write(kTag + QStringLiteral("mdhd box truncated, skipping"));
        return false;
    }
    const qsizetype at = box->offset + (buffer[box->contentOffset] == 0 ? 28 : 40);
    if (at + 2 > end) {
        Log::write(kTag + QStringLiteral("mdhd box too small for language field, skipping"));
        return false;
    }
    MP4Bytes::put16(buffer.data() + at, *packed);
    Log::write(kTag + QStringLiteral("mdhd language set to '%1' (0x%2)").arg(lowered, QString::number(*packed, 16)));
    return true;
}

QStringList MP4LanguageAtomWriter::write(const QString& path, const std::optional<QString>& languageText,
                                         const QString& isoCode, const QList<FreeformTag>& tags)
{
    const EditFn edit = [languageText, isoCode, tags](QByteArray& buf, qsizetype moovOffset, std::int64_t& delta) {
        QStringList labels;
        if (languageText && !languageText->isEmpty()) {
            if (const auto d = placeLanguageAtom(buf, moovOffset, *languageText)) {
                delta += *d;
                labels << QStringLiteral("©lan");
            }
        }
        if (!isoCode.isEmpty()) {
            const FreeformTag language{QStringLiteral("LANGUAGE"), isoCode, languageTagMaxBytes};
            if (const auto d = placeFreeformAtom(buf, moovOffset, language)) {
                delta += *d;
                labels << QStringLiteral("iTunes:LANGUAGE");
            }
            if (setAudioLanguage(buf, moovOffset, isoCode))
                labels << QStringLiteral("mdhd");
        }
        for (const FreeformTag& tag : tags) {
            if (const auto d = placeFreeformAtom(buf, moovOffset, tag)) {
                delta += *d;
                labels << QStringLiteral("iTunes:") + tag.name;
            }
        }
        return labels;
    };
    return run(path, edit, Site{QStringLiteral("writeLanguage"), {}});
}

QStringList MP4LanguageAtomWriter::writeFreeform(const QString& path, const FreeformTag& tag)
{
    const EditFn edit = [tag](QByteArray& buf, qsizetype moovOffset, std::int64_t& delta) {
        QStringList labels;
        if (const auto d = placeFreeformAtom(buf, moovOffset, tag)) {
            delta += *d;
            labels << QStringLiteral("iTunes:") + tag.name;
        }
        return labels;
    };
    return run(path, edit, Site{QStringLiteral("writeFreeform"), tag.name});
}

} // namespace folivox
