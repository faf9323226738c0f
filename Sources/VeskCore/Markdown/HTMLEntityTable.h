// The named character references of HTML as a sorted table. Inside HTMLEntities only.
#pragma once

#include <array>
#include <string_view>

namespace vesk::HTMLEntities {

struct NamedReference {
    std::string_view name;  ///< without "&" and ";"
    char32_t text[2];       ///< the second is 0 when there is but one
};

extern const std::array<NamedReference, 2125> namedReferences;

}  // namespace vesk::HTMLEntities
