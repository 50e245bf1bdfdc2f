// libFuzzer target: SidecarSniffer and the parser registry on arbitrary bytes,
// the way a folder scan sees a file (its first 500 bytes, decoded with repair)
// and the way discovery then reads it whole. Built by run-sidecar-fuzz.sh.
#include "SidecarFuzzCommon.h"
#include "sidecars/parsers/SidecarParserRegistry.h"
#include "sidecars/parsers/SidecarSniffer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace folivox;
    static const SidecarSniffer sniffer;
    static const QUrl urls[] = {QUrl::fromLocalFile(QStringLiteral("/fuzz/a.txt")),
                                QUrl::fromLocalFile(QStringLiteral("/fuzz/a.cue")),
                                QUrl::fromLocalFile(QStringLiteral("/fuzz/a.xml")),
                                QUrl::fromLocalFile(QStringLiteral("/fuzz/a.ffmetadata"))};
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString head = SidecarTextDecoder::decodeUtf8WithRepair(bytes.left(500));
    const QString whole = fuzz::decodeInput(data, size);
    for (const QUrl& url : urls) {
        const auto r = sniffer.sniff(head, url);
        fuzz::check(r.format.has_value() == (r.score > 0));
        fuzz::check(r.score >= 0 && r.score <= 100);
        // A ".txt" file always comes back as something.
        if (url.path().endsWith(QStringLiteral(".txt")))
            fuzz::check(r.format.has_value());
        const auto selection = SidecarParserRegistry::select(whole, url);
        fuzz::check((selection.parser == nullptr) == (selection.score == 0));
    }
    return 0;
}
