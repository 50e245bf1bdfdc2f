#include "MP4TestBoxes.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4ChapterTrackLanguagePatcher.h"
#include "container/mp4/MP4ChunkOffsets.h"

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using Node = MP4BoxTree::Node;

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}
} // namespace

TEST(MP4BoxTreeTest, RoundTripsUntouchedBoxesByteForByte)
{
    // Opaque leaves, full-box prefixes, a 64-bit header and a udta whose
    // QuickTime-style trailing zeros don't parse as boxes.
    const QByteArray moov = moovWith(fullBox("mvhd", 0, QByteArray(96, 'v')) + trak(1, "soun", 0x15C7, stco({1, 2, 3}))
                                     + largeBox("free", "pad") + box("udta", box("\xA9nam", "xx") + u32(0))
                                     + box("udta", fullBox("meta", 0, hdlr("mdir") + box("ilst", textItem("\xA9too", "x")))));
    const Node root = MP4BoxTree::parse(moov);
    EXPECT_EQ(MP4BoxTree::serialize(root), moov);
    EXPECT_EQ(root.size(), std::uint64_t(moov.size()));
    EXPECT_TRUE(root.child(fc("free"))->largeSize);
    EXPECT_FALSE(root.child(fc("udta"), 0)->isContainer); // kept opaque
    const Node* meta = root.child(fc("udta"), 1)->child(fc("meta"));
    ASSERT_NE(meta, nullptr);
    EXPECT_EQ(meta->prefix, QByteArray(4, '\0'));
    const Node* item = meta->child(fc("ilst"))->child(MP4Bytes::fourCC("\xA9too"));
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->isContainer);
    EXPECT_EQ(item->child(fc("data"))->payload, u32(1) + u32(0) + "x");
}

TEST(MP4BoxTreeTest, EditsRecomputeEverySizeOnTheWayUp)
{
    Node root = MP4BoxTree::parse(simpleMoov({40}));
    Node* ilst = MP4BoxTree::find(root, {fc("udta"), fc("meta"), fc("ilst")});
    ASSERT_NE(ilst, nullptr);
    Node item = Node::container(fc("\xA9nam"));
    item.append(Node::leaf(fc("data"), u32(1) + u32(0) + "A Title"));
    ilst->append(item);
    EXPECT_EQ(ilst->removeAll(fc("\xA9too")), 1);
    const QByteArray out = MP4BoxTree::serialize(root);

    // Parse again with the plain header decoder: every size fits its parent.
    const MP4BoxHeader top = MP4BoxHeader::decodeAt(out, 0, out.size());
    EXPECT_EQ(top.size, std::uint64_t(out.size()));
    Node again = MP4BoxTree::parse(out);
    Node* title = MP4BoxTree::find(again, {fc("udta"), fc("meta"), fc("ilst"), fc("\xA9nam"), fc("data")});
    ASSERT_NE(title, nullptr);
    EXPECT_TRUE(title->payload.endsWith("A Title"));
    EXPECT_EQ(MP4BoxTree::find(again, {fc("udta"), fc("meta"), fc("ilst"), fc("\xA9too")}), nullptr);
    // The trak is untouched.
    EXPECT_EQ(MP4BoxTree::serialize(*again.child(fc("trak"))), trak(1, "soun", 0x15C7, stco({40})));

    // A node over 4 GiB switches to the 64-bit header by itself.
    Node big = Node::leaf(fc("free"), {});
    EXPECT_EQ(big.size(), 8u);
    big.largeSize = true;
    EXPECT_EQ(MP4BoxTree::serialize(big), u32(1) + "free" + u64(16));
}

TEST(MP4BoxTreeTest, EnsureIlstBuildsTheMetadataPathWithItsHandler)
{
    Node root = MP4BoxTree::parse(moovWith(trak(1, "soun", 0)));
    Node& ilst = MP4BoxTree::ensureIlst(root);
    ilst.append(Node::leaf(fc("free"), {}));
    Node& same = MP4BoxTree::ensureIlst(root);
    EXPECT_EQ(&same, &ilst);
    const QByteArray out = MP4BoxTree::serialize(root);
    const qsizetype meta = out.indexOf("meta");
    ASSERT_GT(meta, 0);
    // meta: full box, hdlr "mdir" first, then ilst.
    EXPECT_EQ(out.mid(meta + 4, 4), QByteArray(4, '\0'));
    EXPECT_EQ(out.mid(meta + 12, 4), QByteArray("hdlr"));
    EXPECT_EQ(out.mid(meta + 12 + 12, 4), QByteArray("mdir"));
    EXPECT_EQ(MP4BoxHeader::decodeAt(out, meta + 8, out.size()).size, 33u);
    EXPECT_NE(out.indexOf("ilst"), -1);
    EXPECT_EQ(MP4BoxTree::parse(out).child(fc("udta"))->child(fc("meta"))->child(fc("ilst"))->children.size(), 1u);
    EXPECT_THROW(MP4BoxTree::parse(u32(400) + "moov"), MP4BoxHeader::ParseError);
}

TEST(MP4BoxTreeTest, DeeplyNestedBoxesAreBoundedNotFatal)
{
    // 5000 nested traks: far deeper than any real file, and enough to
    // exhaust the stack of an unbounded recursive walk.
    QByteArray inner = stco({7});
    for (int i = 0; i < 5000; ++i)
        inner = box("trak", inner);
    const QByteArray moov = moovWith(inner);
    const Node root = MP4BoxTree::parse(moov);
    EXPECT_EQ(MP4BoxTree::serialize(root), moov);
    EXPECT_FALSE(MP4ChunkOffsets::findInRange(moov, 0, 100)); // too deep to be read
    try {
        MP4ChapterTrackLanguagePatcher::trackLanguageFields(moov);
        FAIL() << "expected malformedAtoms";
    } catch (const MP4ChapterTrackLanguagePatcher::PatchError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("Malformed MP4 atom structure: boxes nested deeper than 32 levels"));
    }
    // Within the bound the table is found.
    QByteArray shallow = stco({7});
    for (int i = 0; i < 4; ++i)
        shallow = box("trak", shallow);
    EXPECT_EQ(MP4ChunkOffsets::findInRange(moovWith(shallow), 0, 100), std::uint64_t(7));
}
