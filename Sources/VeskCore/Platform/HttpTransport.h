// HTTP as the model providers need it: one request, one reply that may arrive piece by piece. No cookies, no
// cache, and no redirect is ever followed, so that a key goes nowhere but to the address it was meant for.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "VeskCore/Support/Error.h"
#include "VeskCore/Support/Time.h"

namespace vesk {

/// An exchange that gave no whole reply. Neither the words nor the detail hold a header or the address.
class HttpError : public Error {
public:
    enum class Kind {
        badRequest,     ///< nothing was sent: an address or a header that can't be
        hostNotFound,   ///< the name has no address
        cannotConnect,  ///< nobody answers there
        timedOut,
        tls,          ///< no connection that proves who answers
        interrupted,  ///< the connection ended inside the reply
        notHttp,
        tooLarge,  ///< beyond HttpRequest::maxBody, or headers without end
        cancelled,
    };
    explicit HttpError(Kind what, std::string more = {}) : kind(what), detail(std::move(more)) {}
    std::string description() const override;

    Kind kind;
    std::string detail;  ///< the library's words, where they help; may be empty
};

struct HttpHeader {
    std::string name, value;
    bool operator==(const HttpHeader&) const = default;
};

struct HttpRequest {
    std::string method = "GET";
    std::string url;  ///< absolute, http or https
    std::vector<HttpHeader> headers;
    std::string body;
    /// The key that stands in one of the headers: whoever shows what a reply says takes it out first.
    std::string secret;
    Duration connectTimeout = std::chrono::seconds(30);
    Duration idleTimeout = std::chrono::seconds(60);  ///< without a byte either way
    Duration totalTimeout = std::chrono::hours(1);
    std::size_t maxBody = std::size_t{64} << 20;  ///< of the reply, unpacked
    /// Whether the reply may come compressed; not for a stream, whose pieces would wait in the compressor.
    bool allowsCompression = false;
};

/// What comes before the reply's body.
struct HttpHead {
    int status = 0;
    std::vector<HttpHeader> headers;
    /// The first of that name, whatever its case.
    std::optional<std::string> header(std::string_view name) const;
};

/// `text` with an ellipsis for a request's secret wherever a server said it back.
std::string withoutSecret(std::string_view text, std::string_view secret);

struct HttpReply {
    HttpHead head;
    std::string body;
};

/// Any thread; several exchanges may run at once.
class HttpTransport {
public:
    /// Called on the thread of the call. What they throw ends the exchange and comes out of send().
    struct Sink {
        std::function<void(const HttpHead&)> head;  ///< once, before any body
        /// A piece of the body, never empty. False ends the exchange early, which is no failure.
        std::function<bool(std::string_view)> body;
    };

    virtual ~HttpTransport() = default;
    /// Blocks a worker until the reply has come. Any status, redirects included, is a reply. Throws
    /// HttpError, `cancelled` within 100 ms of `stop`.
    virtual void send(const HttpRequest& request, const Sink& sink, std::stop_token stop) = 0;

    /// The reply as a whole.
    HttpReply fetch(const HttpRequest& request, std::stop_token stop);
};

}  // namespace vesk
