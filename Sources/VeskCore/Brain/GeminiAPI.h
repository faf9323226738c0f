// What the two Gemini calls share: the request with its key in a header, and error replies as failures.
#pragma once

#include <string>
#include <string_view>

#include "VeskCore/Brain/Keychain.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Support/BrainError.h"
#include "VeskCore/Support/Json.h"

namespace vesk::GeminiAPI {

inline constexpr std::string_view keychainAccount = "gemini";
inline constexpr std::string_view modelsAddress = "https://generativelanguage.googleapis.com/v1beta/models/";

/// A POST of `body` to `modelsAddress` and `call` ("gemini-3.7-flash:streamGenerateContent?alt=sse"). Throws
/// BrainError (missingAPIKey).
HttpRequest post(const std::string& call, const Json& body, const Keychain& keychain);
/// A reply with another status than it should have.
BrainError failure(int status, std::string_view body);
BrainError unreachable(const HttpError& error);

}  // namespace vesk::GeminiAPI
