#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// A failed run of one of the mp4 tools while metadata was written.
class MetadataWritingError : public Error {
public:
    enum class Kind { mp4chapsFailed, mp4tagsFailed, mp4artFailed };

    static MetadataWritingError mp4chapsFailed(const QString& detail);
    static MetadataWritingError mp4tagsFailed(const QString& detail);
    static MetadataWritingError mp4artFailed(const QString& detail);

    Kind kind() const { return kind_; }
    const QString& detail() const { return detail_; }

    // "mp4chaps failed: ", "mp4tags failed: " or "mp4art failed: " and the detail.
    QString description() const override;

private:
    MetadataWritingError(Kind kind, QString detail) : kind_(kind), detail_(std::move(detail)) {}

    Kind kind_;
    QString detail_;
};

} // namespace folivox
