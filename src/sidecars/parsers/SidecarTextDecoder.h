#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace folivox {

// Turns the bytes of a chapter file into text. Encodings are tried in order:
// UTF-8 (strict), Windows-1252 (fails on its five undefined bytes), Mac OS
// Roman, ISO Latin-1; the first that succeeds gives the text, and a leading
// byte order mark is removed.
class SidecarTextDecoder {
public:
    enum class Encoding { utf8, windows1252, macRoman, latin1 };

    struct Decoded {
        QString text;
        Encoding encoding = Encoding::utf8;
    };

    static std::optional<Decoded> decode(const QByteArray& bytes);

    static std::optional<QString> decodeUtf8(const QByteArray& bytes);
    static std::optional<QString> decodeWindows1252(const QByteArray& bytes);
    static QString decodeMacRoman(const QByteArray& bytes);
    // UTF-8 with every malformed sequence replaced by U+FFFD.
    static QString decodeUtf8WithRepair(const QByteArray& bytes);
};

} // namespace folivox
