#include "VeskCore/Brain/EndpointURL.h"

#include <glib.h>

#include <memory>

#include "VeskCore/Support/Text.h"

namespace vesk::EndpointURL {

namespace {

struct UriDeleter {
    void operator()(GUri* uri) const { g_uri_unref(uri); }
};
using Uri = std::unique_ptr<GUri, UriDeleter>;

Uri parse(const std::string& url) {
    return Uri(g_uri_parse(url.c_str(), G_URI_FLAGS_NONE, nullptr));
}

std::string hostOf(GUri* uri) {
    const char* name = uri ? g_uri_get_host(uri) : nullptr;
    return name ? name : "";
}

/// Four numbers from 0 to 255, the first of them 127.
bool isLoopbackIPv4(std::string_view host) {
    const auto parts = split(host, '.');
    if (parts.size() != 4 || parts.front() != "127") return false;
    for (auto part : parts) {
        if (part.empty() || part.size() > 3 || !isAsciiDigit(part.front())) return false;
        const auto number = parseInteger(part);
        if (!number || *number > 255) return false;
    }
    return true;
}

}  // namespace

std::string appending(std::string_view base, std::string_view path) {
    const auto pathEnd = std::min(base.find_first_of("?#"), base.size());
    std::string url(base.substr(0, pathEnd));
    if (!url.ends_with('/')) url += '/';
    url += path;
    url += base.substr(pathEnd);
    return url;
}

std::string withPath(std::string_view base, std::string_view path) {
    const auto scheme = base.find("://");
    const auto authority = scheme == std::string_view::npos ? 0 : scheme + 3;
    const auto authorityEnd = std::min(base.find_first_of("/?#", authority), base.size());
    return std::string(base.substr(0, authorityEnd)) += path;
}

std::string host(const std::string& url) {
    return hostOf(parse(url).get());
}

std::string hostAndPort(const std::string& url) {
    const Uri uri = parse(url);
    std::string text = hostOf(uri.get());
    if (text.find(':') != std::string::npos) text = "[" + text + "]";
    const int port = uri ? g_uri_get_port(uri.get()) : -1;
    if (port >= 0) text += ":" + std::to_string(port);
    return text;
}

bool isLoopback(const std::string& url) {
    const auto name = asciiLowercased(host(url));
    return name == "localhost" || name == "::1" || isLoopbackIPv4(name);
}

}  // namespace vesk::EndpointURL
