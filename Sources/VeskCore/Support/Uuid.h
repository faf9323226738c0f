// Random identifiers (RFC 4122, version 4).
#pragma once

#include <string>

namespace vesk {

/// Upper-case with hyphens: "5C9C2C0E-…". From the system's random source; safe on any thread.
std::string randomUuid();

}  // namespace vesk
