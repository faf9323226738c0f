// Two texts compared, for a terminal.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "VeskCommand/Terminal.h"

namespace vesk::command {

/// The lines in which they differ, "[-gone-]{+new+}" within the words that stay.
std::vector<std::string> changedLines(const Terminal& terminal, std::string_view before,
                                      std::string_view after);

}  // namespace vesk::command
