#include "import/probe/MP4MediaReferences.h"

#include "container/mp4/MP4BoxTree.h"
#include "container/mp4/MP4Bytes.h"
#include "container/mp4/MP4MoovReader.h"

#include <exception>

namespace folivox {

namespace {

constexpr std::uint32_t fc(const char (&s)[5])
{
    return MP4Bytes::fourCC(s);
}

bool isAudioTrack(const MP4BoxTree::Node& trak)
{
    const MP4BoxTree::Node* mdia = trak.child(fc("mdia"));
    const MP4BoxTree::Node* hdlr = mdia ? mdia->child(fc("hdlr")) : nullptr;
    // version and flags, pre_defined, then the handler type.
    return hdlr && hdlr->payload.size() >= 12 && MP4Bytes::be32(hdlr->payload.constData() + 8) == fc("soun");
}

bool hasExternalEntry(const MP4BoxTree::Node& trak)
{
    const MP4BoxTree::Node* mdia = trak.child(fc("mdia"));
    const MP4BoxTree::Node* minf = mdia ? mdia->child(fc("minf")) : nullptr;
    const MP4BoxTree::Node* dinf = minf ? minf->child(fc("dinf")) : nullptr;
    const MP4BoxTree::Node* dref = dinf ? dinf->child(fc("dref")) : nullptr;
    if (!dref)
        return false;
    for (const MP4BoxTree::Node& entry : dref->children) {
        // Every entry is a full box: flag 1 says "the media is in this file".
        const bool selfContained =
            entry.payload.size() >= 4 && (static_cast<unsigned char>(entry.payload[3]) & 0x01) != 0;
        if (!selfContained)
            return true;
    }
    return false;
}

} // namespace

MP4MediaReferences::Facts MP4MediaReferences::read(const QString& path)
{
    Facts facts;
    try {
        const MP4BoxTree::Node moov = MP4BoxTree::parse(MP4MoovReader::read(path).data);
        facts.moovRead = true;
        for (const MP4BoxTree::Node& box : moov.children) {
            if (box.type == fc("mvex"))
                facts.fragmented = true;
            if (box.type == fc("trak") && isAudioTrack(box) && hasExternalEntry(box))
                facts.externalAudio = true;
        }
    } catch (const std::exception&) {
    }
    return facts;
}

} // namespace folivox
