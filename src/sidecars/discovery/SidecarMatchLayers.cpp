#include "sidecars/discovery/SidecarMatchLayers.h"

#include <array>
#include <utility>

namespace folivox {

namespace {
constexpr std::array<std::pair<SidecarMatchLayers::Flag, const char*>, 5> kFlags = {{
    {SidecarMatchLayers::exactName, "exactName"},
    {SidecarMatchLayers::referencedFile, "referencedFile"},
    {SidecarMatchLayers::duration, "duration"},
    {SidecarMatchLayers::sameFolder, "sameFolder"},
    {SidecarMatchLayers::partialName, "partialName"},
}};
} // namespace

int SidecarMatchLayers::points(Flag f)
{
    switch (f) {
    case exactName: return 40;
    case referencedFile: return 35;
    case duration: return 25;
    case sameFolder: return 15;
    case partialName: return 10;
    }
    return 0;
}

int SidecarMatchLayers::score() const
{
    int s = 0;
    for (const auto& [flag, name] : kFlags) {
        if (contains(flag))
            s += points(flag);
    }
    return s;
}

QStringList SidecarMatchLayers::names() const
{
    QStringList out;
    for (const auto& [flag, name] : kFlags) {
        if (contains(flag))
            out.append(QString::fromLatin1(name));
    }
    return out;
}

} // namespace folivox
