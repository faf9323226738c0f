// Statements of programmer errors that stay on in release builds. Never used on input.
#pragma once

namespace vesk {

[[noreturn]] void failEnsure(const char* expression, const char* file, int line, const char* function);

}  // namespace vesk

/// Ends the process with a message when `condition` is false.
#define VESK_ENSURE(condition) \
    (static_cast<bool>(condition) ? void(0) : ::vesk::failEnsure(#condition, __FILE__, __LINE__, __func__))
