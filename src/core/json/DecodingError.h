#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// The one error family of record decoding. Every record's fromJson throws it:
// a required key that is missing, a value of the wrong JSON type, or a value
// whose form is wrong (a malformed UUID, date, base64 text or series index).
//
// codingPath() names where in the document the fault lies, e.g.
// "chapters[2].title". description() names that path for missing keys and
// type mismatches; for corrupted data it is the detail text as given, so that
// callers can match the exact message (for example the series index text).
class DecodingError : public Error {
public:
    enum class Kind {
        keyNotFound,
        valueNotFound,
        typeMismatch,
        dataCorrupted,
    };

    DecodingError(Kind kind, QString codingPath, QString detail = {});

    static DecodingError keyNotFound(const QString& key);
    static DecodingError valueNotFound(const QString& key, const QString& expectedType);
    static DecodingError typeMismatch(const QString& key, const QString& expectedType);
    static DecodingError dataCorrupted(const QString& key, const QString& detail);

    Kind kind() const { return kind_; }
    const QString& codingPath() const { return codingPath_; }
    const QString& detail() const { return detail_; }

    QString description() const override;

    // The same error seen from the enclosing value: "parent.key" for a key,
    // "parent[3]" style when the inner path starts with an index.
    DecodingError prefixed(const QString& parent) const;

private:
    Kind kind_;
    QString codingPath_;
    QString detail_;
};

} // namespace folivox
