// Spoken words as Markdown: a few phrases are formatting commands, everything else passes. Linear in its
// input. Pure; any thread.
#pragma once

#include <string>
#include <string_view>

namespace vesk::DictationFormatter {

/// "normal" and "stop" end an open style and are words otherwise. A style that begins ends the one before.
std::u16string markdown(std::u16string_view text);

}  // namespace vesk::DictationFormatter
