// A styled text as words: each run's characters in brackets, then what differs from plain body text.
#pragma once

#include <string>

#include "Support/InMemoryAttributedText.h"

namespace vesk::test {

std::string shown(const TextAttributes& attributes);
/// "[# ]hidden [Title\n]26 bold"; line ends as in a C++ literal, plain runs without a word.
std::string shown(const InMemoryAttributedText& storage);

}  // namespace vesk::test
