#include "export/metadata/MetadataWritingError.h"

#include "platform/L10n.h"

namespace folivox {

MetadataWritingError MetadataWritingError::mp4chapsFailed(const QString& detail)
{
    return {Kind::mp4chapsFailed, detail};
}

MetadataWritingError MetadataWritingError::mp4tagsFailed(const QString& detail)
{
    return {Kind::mp4tagsFailed, detail};
}

MetadataWritingError MetadataWritingError::mp4artFailed(const QString& detail)
{
    return {Kind::mp4artFailed, detail};
}

QString MetadataWritingError::description() const
{
    switch (kind_) {
    case Kind::mp4chapsFailed:
        return L10n::text("metadata.error.mp4chaps", "mp4chaps failed: ") + detail_;
    case Kind::mp4tagsFailed:
        return L10n::text("metadata.error.mp4tags", "mp4tags failed: ") + detail_;
    case Kind::mp4artFailed:
        return L10n::text("metadata.error.mp4art", "mp4art failed: ") + detail_;
    }
    return detail_;
}

} // namespace folivox
