#include "tools/IlstEditor.h"

#include "container/mp4/MP4Bytes.h"
#include "tools/ToolError.h"

namespace folivox {

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}
constexpr std::uint32_t kData = fc("data");
constexpr std::uint32_t kCovr = fc("covr");
constexpr std::uint32_t kFreeform = fc("----");
constexpr std::uint32_t kMean = fc("mean");
constexpr std::uint32_t kName = fc("name");

// The text stored in a `mean` or `name` box: 4 bytes of version and flags,
// then the text.
QString fullBoxText(const MP4BoxTree::Node* n)
{
    if (!n || n->isContainer || n->payload.size() < 4)
        return {};
    return QString::fromUtf8(n->payload.mid(4));
}
} // namespace

IlstEditor::IlstEditor(MP4BoxTree::Node& moov) : moov_(moov) {}

QByteArray IlstEditor::dataPayload(std::uint32_t dataType, const QByteArray& value)
{
    QByteArray p = MP4Bytes::be32Bytes(dataType & 0xFFFFFFu);
    p += MP4Bytes::be32Bytes(0);
    p += value;
    return p;
}

std::optional<std::uint32_t> IlstEditor::imageDataType(const QByteArray& bytes)
{
    if (bytes.startsWith(QByteArrayLiteral("\xFF\xD8\xFF")))
        return jpeg;
    if (bytes.startsWith(QByteArrayLiteral("\x89PNG\r\n\x1A\n")))
        return png;
    if (bytes.size() > 14 && bytes.startsWith("BM"))
        return bmp;
    return std::nullopt;
}

const MP4BoxTree::Node* IlstEditor::ilst() const
{
    const MP4BoxTree::Node* udta = moov_.child(fc("udta"));
    const MP4BoxTree::Node* meta = udta ? udta->child(fc("meta")) : nullptr;
    const MP4BoxTree::Node* list = meta ? meta->child(fc("ilst")) : nullptr;
    return list && list->isContainer ? list : nullptr;
}

MP4BoxTree::Node& IlstEditor::ensureIlst()
{
    // A box on the path whose content did not parse is kept as opaque bytes;
    // adding children to it would drop those bytes, so refuse instead.
    const MP4BoxTree::Node* udta = moov_.child(fc("udta"));
    const MP4BoxTree::Node* meta = udta && udta->isContainer ? udta->child(fc("meta")) : nullptr;
    const MP4BoxTree::Node* list = meta && meta->isContainer ? meta->child(fc("ilst")) : nullptr;
    if ((udta && !udta->isContainer) || (meta && !meta->isContainer) || (list && !list->isContainer))
        throw ToolError(ToolError::Kind::unsupported, QStringLiteral("the moov/udta/meta/ilst boxes do not parse"));
    return MP4BoxTree::ensureIlst(moov_);
}

int IlstEditor::remove(std::uint32_t type)
{
    if (!ilst())
        return 0;
    return ensureIlst().removeAll(type);
}

int IlstEditor::count(std::uint32_t type) const
{
    const MP4BoxTree::Node* list = ilst();
    return list ? list->count(type) : 0;
}

void IlstEditor::setSingle(std::uint32_t type, std::uint32_t dataType, const QByteArray& value)
{
    MP4BoxTree::Node item = MP4BoxTree::Node::container(type);
    item.append(MP4BoxTree::Node::leaf(kData, dataPayload(dataType, value)));
    MP4BoxTree::Node& list = ensureIlst();
    // Keep the first item's place in the list; drop any duplicates after it.
    bool placed = false;
    for (auto it = list.children.begin(); it != list.children.end();) {
        if (it->type != type) {
            ++it;
            continue;
        }
        if (!placed) {
            *it = item;
            placed = true;
            ++it;
        } else {
            it = list.children.erase(it);
        }
    }
    if (!placed)
        list.append(std::move(item));
}

std::optional<QByteArray> IlstEditor::firstData(std::uint32_t type) const
{
    const MP4BoxTree::Node* list = ilst();
    const MP4BoxTree::Node* item = list ? list->child(type) : nullptr;
    if (!item || !item->isContainer)
        return std::nullopt;
    const MP4BoxTree::Node* data = item->child(kData);
    if (!data || data->isContainer || data->payload.size() < 8)
        return std::nullopt;
    return data->payload;
}

void IlstEditor::setText(std::uint32_t type, const QString& value)
{
    if (value.isEmpty()) {
        remove(type);
        return;
    }
    setSingle(type, utf8, value.toUtf8());
}

std::optional<QString> IlstEditor::text(std::uint32_t type) const
{
    const auto payload = firstData(type);
    if (!payload)
        return std::nullopt;
    return QString::fromUtf8(payload->mid(8));
}

void IlstEditor::setInteger8(std::uint32_t type, int value)
{
    setSingle(type, signedInteger, QByteArray(1, char(value & 0xFF)));
}

std::optional<int> IlstEditor::integer(std::uint32_t type) const
{
    const auto payload = firstData(type);
    if (!payload || payload->size() <= 8)
        return std::nullopt;
    const QByteArray v = payload->mid(8);
    // Big-endian signed integer of 1, 2, 4 or 8 bytes.
    qint64 n = static_cast<signed char>(v.at(0));
    for (qsizetype i = 1; i < v.size() && i < 8; ++i)
        n = (n << 8) | static_cast<unsigned char>(v.at(i));
    return int(n);
}

void IlstEditor::setNumberPair(std::uint32_t type, std::optional<int> number, std::optional<int> total)
{
    NumberPair pair = numberPair(type).value_or(NumberPair{});
    if (number)
        pair.number = *number;
    if (total)
        pair.total = *total;
    if (pair.number == 0 && pair.total == 0) {
        remove(type);
        return;
    }
    const bool isTrack = type == fc("trkn");
    QByteArray v(isTrack ? 8 : 6, '\0');
    MP4Bytes::put16(v.data() + 2, std::uint16_t(pair.number));
    MP4Bytes::put16(v.data() + 4, std::uint16_t(pair.total));
    setSingle(type, binary, v);
}

std::optional<IlstEditor::NumberPair> IlstEditor::numberPair(std::uint32_t type) const
{
    const auto payload = firstData(type);
    if (!payload || payload->size() < 8 + 6)
        return std::nullopt;
    NumberPair p;
    p.number = MP4Bytes::be16(payload->constData() + 10);
    p.total = MP4Bytes::be16(payload->constData() + 12);
    return p;
}

QList<IlstEditor::Image> IlstEditor::covers() const
{
    QList<Image> out;
    const MP4BoxTree::Node* list = ilst();
    if (!list)
        return out;
    for (const MP4BoxTree::Node& item : list->children) {
        if (item.type != kCovr || !item.isContainer)
            continue;
        for (const MP4BoxTree::Node& d : item.children) {
            if (d.type != kData || d.isContainer || d.payload.size() < 8)
                continue;
            out.append(Image{MP4Bytes::be32(d.payload.constData()) & 0xFFFFFFu, d.payload.mid(8)});
        }
    }
    return out;
}

void IlstEditor::addCover(const Image& image)
{
    MP4BoxTree::Node& list = ensureIlst();
    MP4BoxTree::Node* covr = list.child(kCovr);
    if (!covr)
        covr = &list.append(MP4BoxTree::Node::container(kCovr));
    covr->append(MP4BoxTree::Node::leaf(kData, dataPayload(image.dataType, image.bytes)));
}

int IlstEditor::removeCovers(std::optional<int> index)
{
    if (!ilst())
        return 0;
    MP4BoxTree::Node& list = ensureIlst();
    if (!index) {
        int removed = 0;
        for (const MP4BoxTree::Node& item : list.children)
            if (item.type == kCovr)
                removed += item.isContainer ? item.count(kData) : 1;
        list.removeAll(kCovr);
        return removed;
    }
    // Images are numbered across every covr item, in order.
    int seen = 0;
    for (auto it = list.children.begin(); it != list.children.end(); ++it) {
        if (it->type != kCovr || !it->isContainer)
            continue;
        for (auto d = it->children.begin(); d != it->children.end(); ++d) {
            if (d->type != kData)
                continue;
            if (seen++ == *index) {
                it->children.erase(d);
                if (it->count(kData) == 0)
                    list.children.erase(it);
                return 1;
            }
        }
    }
    return 0;
}

std::optional<QString> IlstEditor::freeform(const QString& name) const
{
    const MP4BoxTree::Node* list = ilst();
    if (!list)
        return std::nullopt;
    for (const MP4BoxTree::Node& item : list->children) {
        if (item.type != kFreeform || !item.isContainer)
            continue;
        if (fullBoxText(item.child(kMean)) != QStringLiteral("com.apple.iTunes") || fullBoxText(item.child(kName)) != name)
            continue;
        const MP4BoxTree::Node* data = item.child(kData);
        if (data && !data->isContainer && data->payload.size() >= 8)
            return QString::fromUtf8(data->payload.mid(8));
    }
    return std::nullopt;
}

} // namespace folivox
