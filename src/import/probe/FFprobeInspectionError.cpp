#include "import/probe/FFprobeInspectionError.h"

namespace folivox {

QString FFprobeInspectionError::description() const
{
    switch (kind_) {
    case Kind::noAudioStream:
        return QStringLiteral("No audio stream found in ") + payload_;
    }
    return {};
}

} // namespace folivox
