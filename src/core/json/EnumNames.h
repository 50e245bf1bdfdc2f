#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <optional>
#include <utility>

namespace folivox {

// The stored text of each case of an enumeration. Records write their
// enumerations into JSON, settings and command lines by case name ("aacLC",
// "byDuration"), so every enumeration that is persisted specialises this with
// its case names:
//
//   template<> struct EnumNames<SplitMode> {
//       static constexpr const char* typeName = "SplitMode";
//       static constexpr std::array items{ std::pair{SplitMode::off, "off"}, ... };
//   };
template<class E>
struct EnumNames;

template<class E>
concept NamedEnum = std::is_enum_v<E> && requires { EnumNames<E>::items; EnumNames<E>::typeName; };

// The case name of a value; empty only for a value outside the enumeration.
template<NamedEnum E>
QString enumName(E value)
{
    for (const auto& [item, name] : EnumNames<E>::items) {
        if (item == value)
            return QString::fromLatin1(name);
    }
    return {};
}

// The case whose name is exactly this text (case-sensitive, as stored).
template<NamedEnum E>
std::optional<E> enumFromName(QStringView text)
{
    for (const auto& [item, name] : EnumNames<E>::items) {
        if (text == QLatin1StringView(name))
            return item;
    }
    return std::nullopt;
}

// All cases in declaration order.
template<NamedEnum E>
constexpr auto enumCases()
{
    std::array<E, EnumNames<E>::items.size()> cases{};
    for (std::size_t i = 0; i < cases.size(); ++i)
        cases[i] = EnumNames<E>::items[i].first;
    return cases;
}

} // namespace folivox
