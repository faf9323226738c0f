// Addresses of model servers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vesk::EndpointURL {

/// `base` with `path` behind its own, before its query: "http://h/v1" and "models" give "http://h/v1/models".
std::string appending(std::string_view base, std::string_view path);
/// The same server with `path` in place of all that follows ("/api/v0/models").
std::string withPath(std::string_view base, std::string_view path);
/// "" if it has none.
std::string host(const std::string& url);
/// "127.0.0.1:1234"; without the port where the address names none.
std::string hostAndPort(const std::string& url);
/// Whether what is sent there stays on this device: 127.0.0.0/8, ::1 and "localhost".
bool isLoopback(const std::string& url);

}  // namespace vesk::EndpointURL
