#include "container/mp4/MP4BoxTree.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4Bytes.h"

#include <algorithm>

namespace folivox {

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

constexpr std::uint32_t kMeta = fc("meta");
constexpr std::uint32_t kIlst = fc("ilst");
constexpr std::uint32_t kHdlr = fc("hdlr");
constexpr std::uint32_t kUdta = fc("udta");

bool isPlainContainer(std::uint32_t t)
{
    static constexpr std::uint32_t kTypes[] = {fc("moov"), fc("trak"), fc("mdia"), fc("minf"), fc("stbl"), fc("edts"),
                                               fc("udta"), fc("dinf"), fc("mvex"), fc("moof"), fc("traf"), fc("tref"),
                                               fc("gmhd"), fc("ilst"), fc("sinf"), fc("schi"), fc("mfra")};
    return std::find(std::begin(kTypes), std::end(kTypes), t) != std::end(kTypes);
}

// How many bytes precede the children of a container type, or -1 for a leaf.
// parentType decides for ilst items, which are containers of `data` boxes.
qsizetype prefixLength(std::uint32_t type, std::uint32_t parentType, const char* body, qsizetype bodySize)
{
    if (parentType == kIlst)
        return 0;
    if (isPlainContainer(type))
        return 0;
    if (type == kMeta) {
        // ISO meta is a full box; QuickTime's meta starts directly with hdlr.
        if (bodySize >= 8 && MP4Bytes::be32(body + 4) == kHdlr)
            return 0;
        return 4;
    }
    if (type == fc("stsd") || type == fc("dref"))
        return 8;
    return -1;
}

// Deeper boxes stay opaque; this bounds the recursion on a crafted file.
constexpr int kMaxDepth = 32;

MP4BoxTree::Node parseNode(const QByteArray& buf, const MP4BoxHeader& h, std::uint32_t parentType, int depth = 0)
{
    MP4BoxTree::Node node;
    node.type = h.typeCode;
    node.largeSize = h.headerLength == 16;
    const qsizetype body = qsizetype(h.offset + h.headerLength);
    const qsizetype end = qsizetype(h.offset + h.size);
    const qsizetype prefix = prefixLength(h.typeCode, parentType, buf.constData() + body, end - body);
    if (prefix >= 0 && body + prefix <= end && depth < kMaxDepth) {
        std::vector<MP4BoxTree::Node> kids;
        qsizetype pos = body + prefix;
        bool ok = true;
        try {
            while (pos < end) {
                const MP4BoxHeader c = MP4BoxHeader::decodeAt(buf, pos, end);
                kids.push_back(parseNode(buf, c, h.typeCode, depth + 1));
                pos += qsizetype(c.size);
            }
        } catch (const MP4BoxHeader::ParseError&) {
            ok = false;
        }
        if (ok) {
            node.isContainer = true;
            node.prefix = buf.mid(body, prefix);
            node.children = std::move(kids);
            return node;
        }
    }
    node.payload = buf.mid(body, end - body);
    return node;
}

void serializeInto(const MP4BoxTree::Node& n, QByteArray& out)
{
    const std::uint64_t size = n.size();
    if (size > 0xFFFFFFFFu || n.largeSize) {
        out += MP4Bytes::be32Bytes(1);
        out += MP4Bytes::be32Bytes(n.type);
        out += MP4Bytes::be64Bytes(size);
    } else {
        out += MP4Bytes::be32Bytes(std::uint32_t(size));
        out += MP4Bytes::be32Bytes(n.type);
    }
    if (!n.isContainer) {
        out += n.payload;
        return;
    }
    out += n.prefix;
    for (const MP4BoxTree::Node& c : n.children)
        serializeInto(c, out);
}
} // namespace

MP4BoxTree::Node MP4BoxTree::Node::leaf(std::uint32_t type, QByteArray payload)
{
    Node n;
    n.type = type;
    n.payload = std::move(payload);
    return n;
}

MP4BoxTree::Node MP4BoxTree::Node::container(std::uint32_t type, QByteArray prefix)
{
    Node n;
    n.type = type;
    n.isContainer = true;
    n.prefix = std::move(prefix);
    return n;
}

QString MP4BoxTree::Node::typeText() const
{
    return MP4Bytes::typeText(type);
}

std::uint64_t MP4BoxTree::Node::size() const
{
    std::uint64_t body = 0;
    if (isContainer) {
        body = std::uint64_t(prefix.size());
        for (const Node& c : children)
            body += c.size();
    } else {
        body = std::uint64_t(payload.size());
    }
    return body + 8 > 0xFFFFFFFFu || largeSize ? body + 16 : body + 8;
}

MP4BoxTree::Node* MP4BoxTree::Node::child(std::uint32_t t, int index)
{
    for (Node& c : children)
        if (c.type == t && index-- == 0)
            return &c;
    return nullptr;
}

const MP4BoxTree::Node* MP4BoxTree::Node::child(std::uint32_t t, int index) const
{
    for (const Node& c : children)
        if (c.type == t && index-- == 0)
            return &c;
    return nullptr;
}

std::vector<MP4BoxTree::Node*> MP4BoxTree::Node::childrenOfType(std::uint32_t t)
{
    std::vector<Node*> out;
    for (Node& c : children)
        if (c.type == t)
            out.push_back(&c);
    return out;
}

int MP4BoxTree::Node::count(std::uint32_t t) const
{
    return int(std::count_if(children.begin(), children.end(), [t](const Node& c) { return c.type == t; }));
}

MP4BoxTree::Node& MP4BoxTree::Node::append(Node node)
{
    isContainer = true;
    children.push_back(std::move(node));
    return children.back();
}

MP4BoxTree::Node& MP4BoxTree::Node::insert(std::size_t position, Node node)
{
    isContainer = true;
    position = std::min(position, children.size());
    return *children.insert(children.begin() + std::ptrdiff_t(position), std::move(node));
}

MP4BoxTree::Node& MP4BoxTree::Node::replaceOrAppend(Node node)
{
    if (Node* existing = child(node.type)) {
        *existing = std::move(node);
        return *existing;
    }
    return append(std::move(node));
}

int MP4BoxTree::Node::removeAll(std::uint32_t t)
{
    const auto before = children.size();
    children.erase(std::remove_if(children.begin(), children.end(), [t](const Node& c) { return c.type == t; }),
                   children.end());
    return int(before - children.size());
}

MP4BoxTree::Node& MP4BoxTree::Node::ensureChild(std::uint32_t t, QByteArray childPrefix)
{
    if (Node* existing = child(t))
        return *existing;
    return append(Node::container(t, std::move(childPrefix)));
}

MP4BoxTree::Node MP4BoxTree::parse(const QByteArray& bytes)
{
    const MP4BoxHeader h = MP4BoxHeader::decodeAt(bytes, 0, bytes.size());
    return parseNode(bytes, h, 0);
}

QByteArray MP4BoxTree::serialize(const Node& node)
{
    QByteArray out;
    out.reserve(qsizetype(node.size()));
    serializeInto(node, out);
    return out;
}

MP4BoxTree::Node* MP4BoxTree::find(Node& root, const QList<std::uint32_t>& path)
{
    Node* current = &root;
    for (std::uint32_t step : path) {
        current = current->child(step);
        if (!current)
            return nullptr;
    }
    return current;
}

MP4BoxTree::Node& MP4BoxTree::ensureIlst(Node& moov)
{
    Node& udta = moov.ensureChild(kUdta);
    Node* meta = udta.child(kMeta);
    if (!meta) {
        meta = &udta.append(Node::container(kMeta, QByteArray(4, '\0')));
    }
    if (!meta->child(kHdlr)) {
        // version/flags, pre-defined, handler "mdir", "appl" and 8 reserved bytes, empty name.
        QByteArray hdlr(4 + 4, '\0');
        hdlr += QByteArrayLiteral("mdirappl");
        hdlr += QByteArray(8 + 1, '\0');
        meta->insert(0, Node::leaf(kHdlr, hdlr));
    }
    return meta->ensureChild(kIlst);
}

} // namespace folivox
