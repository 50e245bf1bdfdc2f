#pragma once

#include <QByteArray>
#include <QJsonObject>

#include <optional>

namespace folivox {

// The one field every library file starts from, decoded on its own before
// the body so that a file from a newer program is recognised without
// decoding (and so without misreading) the rest.
struct SchemaEnvelope {
    std::optional<int> schemaVersion;

    // Throws DecodingError when the text is not a JSON object or the version
    // is not an integer.
    static SchemaEnvelope decode(const QByteArray& text);
    // The same from a document already parsed (so a large file is parsed once).
    static SchemaEnvelope decode(const QJsonObject& object);
};

} // namespace folivox
