#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <vector>

namespace folivox {

// A `moov` (or any box) parsed into nested boxes that can be found, replaced,
// inserted and removed, then written back with every size recomputed. Known
// containers are opened (moov, trak, mdia, minf, stbl, udta, meta, ilst and
// its items, stsd, dref, ...); everything else stays as opaque bytes, so a
// box that isn't touched comes out byte for byte as it went in. A container
// whose content does not parse as boxes is kept opaque too.
//
// Media offsets are not this class's business: callers that change the size
// of a `moov` standing ahead of its media use MP4ChunkOffsets, or put the
// result back with MP4MoovRewriter, which never moves media.
class MP4BoxTree {
public:
    struct Node {
        std::uint32_t type = 0;
        // For containers: the bytes between the header and the first child
        // (version and flags of `meta`, version, flags and entry count of
        // `stsd` and `dref`). For leaves: unused.
        QByteArray prefix;
        // For leaves: the whole body behind the header.
        QByteArray payload;
        std::vector<Node> children;
        bool isContainer = false;
        // Written with the 16-byte header even when the size fits in 32 bits.
        bool largeSize = false;

        static Node leaf(std::uint32_t type, QByteArray payload);
        static Node container(std::uint32_t type, QByteArray prefix = {});

        QString typeText() const;
        // Total size with header, as serialize() would write it.
        std::uint64_t size() const;

        // The index-th child of a type, or nullptr.
        Node* child(std::uint32_t type, int index = 0);
        const Node* child(std::uint32_t type, int index = 0) const;
        // All children of a type.
        std::vector<Node*> childrenOfType(std::uint32_t type);
        int count(std::uint32_t type) const;
        // Appends (or inserts before position) and returns the new child.
        Node& append(Node node);
        Node& insert(std::size_t position, Node node);
        // Replaces the first child of node's type, or appends when there is none.
        Node& replaceOrAppend(Node node);
        // Removes every child of a type; returns how many went.
        int removeAll(std::uint32_t type);
        // The child of this type, made as an empty container when missing.
        Node& ensureChild(std::uint32_t type, QByteArray childPrefix = {});
    };

    // Parses one whole box (header included) that fills bytes. Throws
    // MP4BoxHeader::ParseError when the outer header is bad.
    static Node parse(const QByteArray& bytes);
    static QByteArray serialize(const Node& node);

    // Follows a path of types from root (root's own type is not part of it):
    // {"udta","meta","ilst"}. nullptr when a step is missing.
    static Node* find(Node& root, const QList<std::uint32_t>& path);

    // moov/udta/meta/ilst, made when missing, with the `hdlr` (handler
    // "mdir") that iTunes-style metadata needs.
    static Node& ensureIlst(Node& moov);
};

} // namespace folivox
