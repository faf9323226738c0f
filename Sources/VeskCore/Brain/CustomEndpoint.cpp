#include "VeskCore/Brain/CustomEndpoint.h"

#include <glib.h>

#include <algorithm>
#include <memory>

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

struct UriDeleter {
    void operator()(GUri* uri) const { g_uri_unref(uri); }
};
using Uri = std::unique_ptr<GUri, UriDeleter>;

/// Null if the text is no absolute URL.
Uri parseUrl(const std::string& text) {
    // GLib lets these pass; no URL may hold them as they stand (RFC 3986, appendix A).
    constexpr std::string_view forbidden = "\"<>\\^`{|}";
    const bool isUrlText = std::none_of(text.begin(), text.end(), [&](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= 0x20 || byte == 0x7F || forbidden.find(c) != forbidden.npos;
    });
    return isUrlText ? Uri(g_uri_parse(text.c_str(), G_URI_FLAGS_NONE, nullptr)) : nullptr;
}

void removeSuffix(std::string_view& text, std::string_view suffix) {
    if (text.ends_with(suffix)) text.remove_suffix(suffix.size());
}

}  // namespace

std::optional<std::string> CustomEndpoint::baseURL() const {
    auto text = defaults_.string(baseURLKey);
    if (!text || text->empty() || !parseUrl(*text)) return std::nullopt;
    return text;
}

void CustomEndpoint::setBaseURL(const std::optional<std::string>& url) {
    if (url) {
        defaults_.set(baseURLKey, Json(*url));
    } else {
        defaults_.remove(baseURLKey);
    }
}

std::string CustomEndpoint::model() const {
    return defaults_.string(modelKey).value_or("");
}

void CustomEndpoint::setModel(std::string_view model) {
    defaults_.set(modelKey, Json(model));
}

std::optional<std::string> CustomEndpoint::normalise(std::string_view text) {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    std::string address(text);
    if (address.find("://") == std::string::npos) address.insert(0, "https://");
    std::string_view rest = address;
    while (rest.ends_with('/')) rest.remove_suffix(1);
    removeSuffix(rest, "/chat/completions");
    removeSuffix(rest, "/completions");
    address = std::string(rest);

    const Uri uri = parseUrl(address);
    const char* host = uri ? g_uri_get_host(uri.get()) : nullptr;
    if (!host || *host == '\0') return std::nullopt;
    if (std::string_view(g_uri_get_path(uri.get())).find("/v1") != std::string_view::npos) return address;
    // Behind the path, whose own trailing slashes were not at the text's end if a query follows.
    std::size_t pathEnd = std::min(address.find_first_of("?#"), address.size());
    while (address[pathEnd - 1] == '/') address.erase(--pathEnd, 1);
    address.insert(pathEnd, "/v1");
    return address;
}

}  // namespace vesk
