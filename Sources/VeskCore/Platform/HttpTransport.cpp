#include "VeskCore/Platform/HttpTransport.h"

#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

std::string_view words(HttpError::Kind kind) {
    switch (kind) {
        case HttpError::Kind::badRequest:
            return "The request can't be sent.";
        case HttpError::Kind::hostNotFound:
            return "The server's name can't be found.";
        case HttpError::Kind::cannotConnect:
            return "The server can't be connected to.";
        case HttpError::Kind::timedOut:
            return "The request timed out.";
        case HttpError::Kind::tls:
            return "A secure connection to the server can't be made.";
        case HttpError::Kind::interrupted:
            return "The network connection was lost.";
        case HttpError::Kind::notHttp:
            return "The reply wasn't an HTTP response.";
        case HttpError::Kind::tooLarge:
            return "The reply is larger than Vesk reads.";
        case HttpError::Kind::cancelled:
            return "Cancelled.";
    }
    return "";
}

}  // namespace

std::string HttpError::description() const {
    std::string text(words(kind));
    if (!detail.empty()) text += " (" + detail + ")";
    return text;
}

std::optional<std::string> HttpHead::header(std::string_view name) const {
    for (const auto& header : headers) {
        if (asciiEqualsIgnoringCase(header.name, name)) return header.value;
    }
    return std::nullopt;
}

std::string withoutSecret(std::string_view text, std::string_view secret) {
    // What is shorter is no key, and may well stand in any sentence.
    constexpr std::size_t shortestKey = 8;
    return secret.size() < shortestKey ? std::string(text) : replaceAll(text, secret, "…");
}

HttpReply HttpTransport::fetch(const HttpRequest& request, std::stop_token stop) {
    HttpReply reply;
    send(request,
         {.head = [&](const HttpHead& head) { reply.head = head; },
          .body =
              [&](std::string_view bytes) {
                  reply.body += bytes;
                  return true;
              }},
         std::move(stop));
    return reply;
}

}  // namespace vesk
