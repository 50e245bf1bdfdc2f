#include "platform/Error.h"

namespace folivox {

const char* Error::what() const noexcept
{
    try {
        whatCache_ = description().toStdString();
    } catch (...) {
        return "folivox::Error";
    }
    return whatCache_.c_str();
}

} // namespace folivox
