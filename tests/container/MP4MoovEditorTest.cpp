#include "MP4TestBoxes.h"

#include "container/mp4/MP4BoxHeader.h"
#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4MoovEditor.h"
#include "container/mp4/MP4MoovReader.h"
#include "platform/Log.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using namespace folivox::test;
using Node = MP4BoxTree::Node;

namespace {
constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

bool addTitle(Node& moov, const QByteArray& title)
{
    Node& ilst = MP4BoxTree::ensureIlst(moov);
    Node item = Node::container(fc("\xA9nam"));
    item.append(Node::leaf(fc("data"), u32(1) + u32(0) + title));
    ilst.replaceOrAppend(item);
    return true;
}
} // namespace

TEST(MP4MoovEditorTest, TreeEditsGoBackThroughTheRewriterOrTheWholeFile)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("book.m4b");
    const QByteArray ftyp = box("ftyp", "M4B " + u32(0));
    const QByteArray payload("AUDIO");

    // moov last: the fast path, a new copy behind the old one, nothing ahead of it moves.
    const QByteArray head = ftyp + box("mdat", payload);
    ASSERT_TRUE(writeBytes(path, head + simpleMoov({std::uint32_t(ftyp.size() + 8)})));
    auto r = MP4MoovEditor::edit(path, [](Node& moov) { return addTitle(moov, "First"); });
    EXPECT_EQ(r.route, MP4MoovEditor::Route::fastPath);
    EXPECT_EQ(r.mode, MP4MoovRewriter::Mode::append);
    EXPECT_EQ(readBytes(path).left(head.size()), head);
    EXPECT_TRUE(MP4MoovReader::read(path).data.contains("First"));
    // An edit that changes nothing leaves the file alone.
    const QByteArray before = readBytes(path);
    EXPECT_EQ(MP4MoovEditor::edit(path, [](Node&) { return false; }).route, MP4MoovEditor::Route::unchanged);
    EXPECT_EQ(readBytes(path), before);

    // moov ahead of the media with no room around it: the whole file anew,
    // with room behind the moov and the offsets behind it shifted.
    const qsizetype moovSize = simpleMoov({0}).size();
    const std::uint32_t chunk = std::uint32_t(ftyp.size() + moovSize + 8);
    ASSERT_TRUE(writeBytes(path, ftyp + simpleMoov({chunk}) + box("mdat", payload) + u32(999) + "junk"));
    LogCapture log;
    r = MP4MoovEditor::edit(path, [](Node& moov) { return addTitle(moov, "A longer title"); });
    EXPECT_EQ(r.route, MP4MoovEditor::Route::fullFile);
    EXPECT_TRUE(log.contains(QStringLiteral("[AtomsPerf] fallback site=moovEditor reason=moov-only rewrite not possible")));
    const auto moov = MP4MoovReader::read(path);
    Node tree = MP4BoxTree::parse(moov.data);
    const Node* stco = MP4BoxTree::find(tree, {fc("trak"), fc("mdia"), fc("minf"), fc("stbl"), fc("stco")});
    ASSERT_NE(stco, nullptr);
    const std::uint32_t shifted = MP4Bytes::be32(stco->payload.constData() + 8);
    const MP4BoxHeader room = MP4BoxHeader::decode(readBytes(path).mid(qsizetype(moov.fileOffset + moov.originalSize), 16),
                                                   moov.fileOffset + moov.originalSize, UINT64_MAX);
    EXPECT_EQ(room.type, QStringLiteral("free"));
    EXPECT_GE(room.size, moov.originalSize + 8);
    EXPECT_EQ(shifted, chunk + std::uint32_t(moov.originalSize + room.size - std::uint64_t(moovSize)));
    EXPECT_EQ((shifted - chunk) % 4096, 0u);
    EXPECT_EQ(readBytes(path).mid(shifted, payload.size()), payload);
    EXPECT_TRUE(readBytes(path).endsWith(u32(999) + "junk"));
}
