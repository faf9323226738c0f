// Which release of the operating system this is.
#pragma once

#include <string>

namespace vesk {

/// "12.5.0": major, minor and patch, by os-release(5); what is missing is 0.
std::string systemVersion();

}  // namespace vesk
