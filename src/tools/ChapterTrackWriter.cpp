#include "tools/ChapterTrackWriter.h"

#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4File.h"
#include "container/mp4/MP4LanguageAtomWriter.h"
#include "tools/MoovEditor.h"
#include "tools/ToolError.h"

#include <QFileInfo>
#include <QStringDecoder>

#include <algorithm>
#include <cmath>
#include <set>

namespace folivox {

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}
using Node = MP4BoxTree::Node;

constexpr std::uint32_t kTrak = fc("trak");
constexpr std::uint32_t kTref = fc("tref");
constexpr std::uint32_t kChap = fc("chap");
constexpr std::uint32_t kText = fc("text");
constexpr std::uint16_t kUndeterminedLanguage = 0x55C4; // "und"

void append16(QByteArray& b, std::uint16_t v)
{
    char p[2];
    MP4Bytes::put16(p, v);
    b.append(p, 2);
}
void append32(QByteArray& b, std::uint32_t v)
{
    b += MP4Bytes::be32Bytes(v);
}
void append64(QByteArray& b, std::uint64_t v)
{
    b += MP4Bytes::be64Bytes(v);
}

// Version 1 of a header box is needed only when a value passes 32 bits.
bool needs64(std::initializer_list<std::uint64_t> values)
{
    return std::any_of(values.begin(), values.end(), [](std::uint64_t v) { return v > 0xFFFFFFFFu; });
}

QByteArray identityMatrix()
{
    QByteArray m;
    for (std::uint32_t v : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u})
        append32(m, v);
    return m;
}

Node tkhd(std::uint32_t trackID, std::uint64_t created, std::uint64_t modified, std::uint64_t duration)
{
    // Flags 0x2: in the movie but not enabled, so no player shows the track
    // as something to play; the sound track that names it stays the one played.
    const bool v1 = needs64({created, modified, duration});
    QByteArray p;
    append32(p, (v1 ? 0x01000000u : 0u) | 0x000002u);
    if (v1) {
        append64(p, created);
        append64(p, modified);
        append32(p, trackID);
        append32(p, 0);
        append64(p, duration);
    } else {
        append32(p, std::uint32_t(created));
        append32(p, std::uint32_t(modified));
        append32(p, trackID);
        append32(p, 0);
        append32(p, std::uint32_t(duration));
    }
    p += QByteArray(8, '\0');  // reserved
    append16(p, 0);            // layer
    append16(p, 0);            // alternate group
    append16(p, 0);            // volume
    append16(p, 0);            // reserved
    p += identityMatrix();
    append32(p, 0); // width
    append32(p, 0); // height
    return Node::leaf(fc("tkhd"), p);
}

Node edts(std::uint64_t movieDuration)
{
    const bool v1 = needs64({movieDuration});
    QByteArray p;
    append32(p, v1 ? 0x01000000u : 0u);
    append32(p, 1);
    if (v1) {
        append64(p, movieDuration);
        append64(p, 0);
    } else {
        append32(p, std::uint32_t(movieDuration));
        append32(p, 0);
    }
    append32(p, 0x00010000u); // rate 1.0
    Node e = Node::container(fc("edts"));
    e.append(Node::leaf(fc("elst"), p));
    return e;
}

Node mdhd(std::uint64_t created, std::uint64_t modified, std::uint64_t durationMs)
{
    const bool v1 = needs64({created, modified, durationMs});
    QByteArray p;
    append32(p, v1 ? 0x01000000u : 0u);
    if (v1) {
        append64(p, created);
        append64(p, modified);
        append32(p, ChapterTrackWriter::timescale);
        append64(p, durationMs);
    } else {
        append32(p, std::uint32_t(created));
        append32(p, std::uint32_t(modified));
        append32(p, ChapterTrackWriter::timescale);
        append32(p, std::uint32_t(durationMs));
    }
    append16(p, kUndeterminedLanguage);
    append16(p, 0);
    return Node::leaf(fc("mdhd"), p);
}

Node hdlr()
{
    QByteArray p;
    append32(p, 0);
    append32(p, 0);
    append32(p, kText);
    p += QByteArray(12, '\0');
    p += QByteArrayLiteral("Chapters");
    p += '\0';
    return Node::leaf(fc("hdlr"), p);
}

Node gmhd()
{
    QByteArray gmin;
    append32(gmin, 0);       // version, flags
    append16(gmin, 0x0040);  // graphics mode: copy
    append16(gmin, 0x8000);  // opcolor
    append16(gmin, 0x8000);
    append16(gmin, 0x8000);
    append16(gmin, 0);       // balance
    append16(gmin, 0);       // reserved
    QByteArray text;
    append16(text, 1);
    text += QByteArray(14, '\0');
    append16(text, 1);
    text += QByteArray(14, '\0');
    append32(text, 0x40000000u);
    Node g = Node::container(fc("gmhd"));
    g.append(Node::leaf(fc("gmin"), gmin));
    g.append(Node::leaf(kText, text));
    return g;
}

Node dinf()
{
    QByteArray prefix;
    append32(prefix, 0);
    append32(prefix, 1);
    Node dref = Node::container(fc("dref"), prefix);
    QByteArray url;
    append32(url, 1); // flags: the media is in this file
    dref.append(Node::leaf(fc("url "), url));
    Node d = Node::container(fc("dinf"));
    d.append(std::move(dref));
    return d;
}

Node stsd()
{
    QByteArray prefix;
    append32(prefix, 0);
    append32(prefix, 1);
    QByteArray entry(6, '\0'); // reserved
    append16(entry, 1);        // data reference index
    append32(entry, 1);        // display flags
    append32(entry, 1);        // justification
    entry += QByteArray(6, '\0');  // background colour
    entry += QByteArray(8, '\0');  // default text box
    entry += QByteArray(8, '\0');  // reserved
    append16(entry, 0);            // font number
    append16(entry, 0);            // font face
    entry += QByteArray(1, '\0');  // reserved
    append16(entry, 0);            // reserved
    entry += QByteArray(6, '\0');  // foreground colour
    Node s = Node::container(fc("stsd"), prefix);
    s.append(Node::leaf(kText, entry));
    return s;
}

Node stbl(const QList<std::uint32_t>& durations, const QList<std::uint32_t>& sizes, std::uint64_t chunkOffset)
{
    Node t = Node::container(fc("stbl"));
    t.append(stsd());

    // Runs of equal durations share one stts entry.
    QList<std::pair<std::uint32_t, std::uint32_t>> runs;
    for (std::uint32_t d : durations) {
        if (!runs.isEmpty() && runs.last().second == d)
            ++runs.last().first;
        else
            runs.append({1, d});
    }
    QByteArray stts;
    append32(stts, 0);
    append32(stts, std::uint32_t(runs.size()));
    for (const auto& [count, delta] : runs) {
        append32(stts, count);
        append32(stts, delta);
    }
    t.append(Node::leaf(fc("stts"), stts));

    QByteArray stsc;
    append32(stsc, 0);
    append32(stsc, 1);
    append32(stsc, 1);
    append32(stsc, std::uint32_t(sizes.size()));
    append32(stsc, 1);
    t.append(Node::leaf(fc("stsc"), stsc));

    QByteArray stsz;
    append32(stsz, 0);
    append32(stsz, 0);
    append32(stsz, std::uint32_t(sizes.size()));
    for (std::uint32_t s : sizes)
        append32(stsz, s);
    t.append(Node::leaf(fc("stsz"), stsz));

    QByteArray offsets;
    append32(offsets, 0);
    append32(offsets, 1);
    if (chunkOffset > 0xFFFFFFFFu) {
        append64(offsets, chunkOffset);
        t.append(Node::leaf(fc("co64"), offsets));
    } else {
        append32(offsets, std::uint32_t(chunkOffset));
        t.append(Node::leaf(fc("stco"), offsets));
    }
    return t;
}

QList<std::uint32_t> chapIDs(const Node& chap)
{
    QList<std::uint32_t> ids;
    if (chap.isContainer)
        return ids;
    for (qsizetype at = 0; at + 4 <= chap.payload.size(); at += 4)
        ids.append(MP4Bytes::be32(chap.payload.constData() + at));
    return ids;
}

const Node* findTrack(const Node& moov, std::uint32_t id)
{
    for (const Node& c : moov.children)
        if (c.type == kTrak && MoovEditor::trackID(c) == id)
            return &c;
    return nullptr;
}

const Node* stblOf(const Node& trak)
{
    const Node* mdia = trak.child(fc("mdia"));
    const Node* minf = mdia ? mdia->child(fc("minf")) : nullptr;
    return minf ? minf->child(fc("stbl")) : nullptr;
}

// The entries of a full box table as 32-bit words, from `first` words in.
QList<std::uint32_t> words(const Node* box, qsizetype first)
{
    QList<std::uint32_t> out;
    if (!box || box->isContainer)
        return out;
    for (qsizetype at = first * 4; at + 4 <= box->payload.size(); at += 4)
        out.append(MP4Bytes::be32(box->payload.constData() + at));
    return out;
}

QString decodeTitle(const QByteArray& bytes)
{
    if (bytes.startsWith("\xFE\xFF")) {
        auto decoder = QStringDecoder(QStringDecoder::Utf16BE);
        return decoder(bytes.mid(2));
    }
    return QString::fromUtf8(bytes);
}
} // namespace

QByteArray ChapterTrackWriter::sample(const QString& title)
{
    const QByteArray text = MP4LanguageAtomWriter::utf8Prefix(title, maxTitleBytes);
    QByteArray s;
    append16(s, std::uint16_t(text.size()));
    s += text;
    append32(s, 12);
    s += QByteArrayLiteral("encd");
    append32(s, 0x00000100u); // UTF-8
    return s;
}

int ChapterTrackWriter::remove(MoovEditor& editor)
{
    Node& moov = editor.moov();
    std::set<std::uint32_t> textIDs;
    for (const Node& trak : moov.children) {
        if (trak.type != kTrak)
            continue;
        const Node* tref = trak.child(kTref);
        const Node* chap = tref && tref->isContainer ? tref->child(kChap) : nullptr;
        if (!chap)
            continue;
        for (std::uint32_t id : chapIDs(*chap)) {
            const Node* target = findTrack(moov, id);
            if (target && MoovEditor::handlerType(*target) == kText)
                textIDs.insert(id);
        }
    }

    int removed = 0;
    for (auto it = moov.children.begin(); it != moov.children.end();) {
        if (it->type == kTrak && textIDs.count(MoovEditor::trackID(*it))) {
            it = moov.children.erase(it);
            ++removed;
        } else {
            ++it;
        }
    }
    // Drop the references, keeping any that name other kinds of track
    // (chapter pictures).
    for (Node& trak : moov.children) {
        if (trak.type != kTrak)
            continue;
        Node* tref = trak.child(kTref);
        if (!tref || !tref->isContainer)
            continue;
        for (auto c = tref->children.begin(); c != tref->children.end();) {
            if (c->type != kChap) {
                ++c;
                continue;
            }
            QByteArray kept;
            for (std::uint32_t id : chapIDs(*c))
                if (!textIDs.count(id) && findTrack(moov, id))
                    append32(kept, id);
            if (kept.isEmpty()) {
                c = tref->children.erase(c);
            } else {
                c->payload = kept;
                ++c;
            }
        }
        if (tref->children.empty())
            trak.removeAll(kTref);
    }
    return removed;
}

QByteArray ChapterTrackWriter::add(MoovEditor& editor, const QList<ChapterEntry>& chapters, std::int64_t durationMs,
                                   std::uint64_t mdatOffset)
{
    Node* audio = editor.primaryAudioTrack();
    if (!audio)
        throw ToolError(ToolError::Kind::unsupported,
                        QFileInfo(editor.path()).fileName() + QStringLiteral(": no sound track to attach chapters to"));
    const auto header = editor.movieHeader();
    const std::uint32_t movieTimescale = header && header->timescale ? header->timescale : 1000;

    std::uint32_t newID = header ? header->nextTrackID : 0;
    for (const Node& c : editor.moov().children)
        if (c.type == kTrak)
            newID = std::max(newID, MoovEditor::trackID(c) + 1);
    newID = std::max<std::uint32_t>(newID, 1);

    QByteArray media;
    QList<std::uint32_t> sizes;
    QList<std::uint32_t> durations;
    for (qsizetype i = 0; i < chapters.size(); ++i) {
        const QByteArray s = sample(chapters.at(i).title);
        media += s;
        sizes.append(std::uint32_t(s.size()));
        const std::int64_t end = i + 1 < chapters.size() ? chapters.at(i + 1).startMs : durationMs;
        durations.append(std::uint32_t(std::max<std::int64_t>(0, end - chapters.at(i).startMs)));
    }

    const std::uint64_t created = header ? header->creationTime : 0;
    const std::uint64_t modified = header ? header->modificationTime : 0;
    const auto movieDuration = std::uint64_t(std::llround(double(durationMs) * movieTimescale / 1000.0));

    Node trak = Node::container(kTrak);
    trak.append(tkhd(newID, created, modified, movieDuration));
    trak.append(edts(movieDuration));
    Node mdia = Node::container(fc("mdia"));
    mdia.append(mdhd(created, modified, std::uint64_t(durationMs)));
    mdia.append(hdlr());
    Node minf = Node::container(fc("minf"));
    minf.append(gmhd());
    minf.append(dinf());
    minf.append(stbl(durations, sizes, mdatOffset + 8));
    mdia.append(std::move(minf));
    trak.append(std::move(mdia));

    // The reference goes into the sound track, right behind its tkhd.
    Node* tref = audio->child(kTref);
    if (tref && !tref->isContainer)
        throw ToolError(ToolError::Kind::unsupported,
                        QFileInfo(editor.path()).fileName() + QStringLiteral(": the sound track's tref box does not parse"));
    if (!tref) {
        std::size_t at = 0;
        while (at < audio->children.size() && audio->children[at].type != fc("tkhd"))
            ++at;
        tref = &audio->insert(at < audio->children.size() ? at + 1 : 0, Node::container(kTref));
    }
    Node* chap = tref->child(kChap);
    if (!chap)
        chap = &tref->append(Node::leaf(kChap, {}));
    chap->payload += MP4Bytes::be32Bytes(newID);

    // The new track goes behind the last existing one.
    Node& moov = editor.moov();
    std::size_t insertAt = 0;
    for (std::size_t i = 0; i < moov.children.size(); ++i)
        if (moov.children[i].type == kTrak)
            insertAt = i + 1;
    moov.insert(insertAt, std::move(trak));
    editor.setNextTrackID(newID + 1);

    QByteArray mdat = MP4Bytes::be32Bytes(std::uint32_t(8 + media.size()));
    mdat += QByteArrayLiteral("mdat");
    mdat += media;
    return mdat;
}

QList<ChapterEntry> ChapterTrackWriter::read(const MP4BoxTree::Node& moov, const QString& path)
{
    QList<ChapterEntry> out;
    const Node* textTrack = nullptr;
    for (const Node& trak : moov.children) {
        if (trak.type != kTrak || textTrack)
            continue;
        const Node* tref = trak.child(kTref);
        const Node* chap = tref && tref->isContainer ? tref->child(kChap) : nullptr;
        if (!chap)
            continue;
        for (std::uint32_t id : chapIDs(*chap)) {
            const Node* t = findTrack(moov, id);
            if (t && MoovEditor::handlerType(*t) == kText) {
                textTrack = t;
                break;
            }
        }
    }
    if (!textTrack)
        return out;
    const auto time = MoovEditor::mediaTime(*textTrack);
    const Node* table = stblOf(*textTrack);
    if (!time || !time->timescale || !table)
        return out;

    // Sample durations, sizes and file offsets from the sample tables.
    QList<std::uint64_t> starts;
    {
        const QList<std::uint32_t> stts = words(table->child(fc("stts")), 2);
        std::uint64_t t = 0;
        for (qsizetype i = 0; i + 1 < stts.size(); i += 2)
            for (std::uint32_t n = 0; n < stts.at(i) && starts.size() < 1000000; ++n) {
                starts.append(t);
                t += stts.at(i + 1);
            }
    }
    QList<std::uint32_t> sizes;
    {
        const QList<std::uint32_t> stsz = words(table->child(fc("stsz")), 1);
        if (stsz.size() >= 2) {
            const std::uint32_t fixed = stsz.at(0);
            for (std::uint32_t i = 0; i < stsz.at(1) && i < 1000000; ++i)
                sizes.append(fixed ? fixed : (qsizetype(i) + 2 < stsz.size() ? stsz.at(i + 2) : 0));
        }
    }
    QList<std::uint64_t> chunks;
    if (const Node* co64 = table->child(fc("co64")); co64 && !co64->isContainer) {
        for (qsizetype at = 8; at + 8 <= co64->payload.size(); at += 8)
            chunks.append(MP4Bytes::be64(co64->payload.constData() + at));
    } else {
        for (std::uint32_t o : words(table->child(fc("stco")), 2))
            chunks.append(o);
    }
    const QList<std::uint32_t> stsc = words(table->child(fc("stsc")), 2);

    QList<std::uint64_t> offsets;
    qsizetype sampleIndex = 0;
    for (qsizetype chunk = 0; chunk < chunks.size() && sampleIndex < sizes.size(); ++chunk) {
        // The samples-per-chunk of the last stsc run starting at or before this chunk.
        std::uint32_t perChunk = 0;
        for (qsizetype i = 0; i + 2 < stsc.size(); i += 3)
            if (stsc.at(i) <= std::uint32_t(chunk + 1))
                perChunk = stsc.at(i + 1);
        std::uint64_t at = chunks.at(chunk);
        for (std::uint32_t k = 0; k < perChunk && sampleIndex < sizes.size(); ++k) {
            offsets.append(at);
            at += sizes.at(sampleIndex++);
        }
    }

    const MP4File file(path, MP4File::Access::read);
    const std::uint64_t fileSize = file.size();
    const qsizetype n = std::min({starts.size(), sizes.size(), offsets.size()});
    for (qsizetype i = 0; i < n; ++i) {
        if (offsets.at(i) + sizes.at(i) > fileSize)
            throw ToolError(ToolError::Kind::moovUnreadable,
                            QFileInfo(path).fileName() + QStringLiteral(": a chapter sample lies outside the file"));
        const QByteArray s = file.readAt(offsets.at(i), sizes.at(i));
        QString title;
        if (s.size() >= 2) {
            const qsizetype len = std::min<qsizetype>(MP4Bytes::be16(s.constData()), s.size() - 2);
            title = decodeTitle(s.mid(2, len));
        }
        const auto ms = std::int64_t(std::llround(double(starts.at(i)) * 1000.0 / time->timescale));
        out.append(ChapterEntry{ms, title});
    }
    return out;
}

} // namespace folivox
