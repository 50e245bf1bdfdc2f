#pragma once

// Shared driver of the chapter-file fuzz targets: bytes are decoded the way
// discovery decodes a file, then a parser's confidence and parse run under a
// few file names, and the result goes through both validations. Parsers must
// never throw, and every chapter they return must keep the format's limits.

#include "sidecars/parsers/SidecarParser.h"
#include "sidecars/parsers/SidecarTextDecoder.h"
#include "sidecars/parsers/SidecarTextRules.h"
#include "sidecars/apply/SidecarValidationService.h"

#include <QByteArray>
#include <QUrl>

#include <cstdint>
#include <cstdlib>

namespace folivox::fuzz {

inline QString decodeInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const auto decoded = SidecarTextDecoder::decode(bytes);
    return decoded ? decoded->text : QString();
}

inline void check(bool condition)
{
    if (!condition)
        std::abort();
}

inline void runParser(const SidecarParser& parser, const uint8_t* data, size_t size)
{
    const QString text = decodeInput(data, size);
    static const QUrl urls[] = {QUrl::fromLocalFile(QStringLiteral("/fuzz/book.cue")),
                                QUrl::fromLocalFile(QStringLiteral("/fuzz/book.chapters.txt")),
                                QUrl::fromLocalFile(QStringLiteral("/fuzz/chapters.xml"))};
    for (const QUrl& url : urls) {
        const int score = parser.confidence(text, url);
        check(score >= 0 && score <= 100);
    }
    const SidecarParseResult result = parser.parse(text, urls[0]);
    check(result.format == parser.format());
    // The cue sheet may close one track past the limit; no other format may.
    check(result.chapters.size() <= SidecarTextRules::kMaxChapters + 1);
    check(!result.chapters.isEmpty() || result.hasError());
    for (const auto& c : result.chapters) {
        check(!c.title.isEmpty());
        check(c.startMs <= SidecarTextRules::kMaxTimeMs);
    }
    const SidecarValidationService validation;
    validation.validateLenient(result.chapters, 3'600'000);
    validation.validateLenient(result.chapters, 0);
    validation.validateStrict(result.chapters, 3'600'000);
}

} // namespace folivox::fuzz
