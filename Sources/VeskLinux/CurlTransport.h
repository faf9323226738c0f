// HTTP over libcurl.
#pragma once

#include <memory>
#include <string_view>

#include "VeskCore/Platform/HttpTransport.h"

namespace vesk {

/// Certificates are verified, proxies come from the environment ("https_proxy", "no_proxy" and their kin),
/// and what goes to a loopback address goes there directly. Connections are kept for the next exchange.
class CurlTransport final : public HttpTransport {
public:
    /// With a `standIn` ("127.0.0.1:8080", "[::1]:8080") every request goes to that server in clear text, its
    /// Host header as it would have been. An address beyond loopback makes every request fail.
    explicit CurlTransport(std::string_view standIn = {});
    ~CurlTransport() override;
    void send(const HttpRequest& request, const Sink& sink, std::stop_token stop) override;

private:
    class Pool;
    struct StandIn;
    std::unique_ptr<Pool> pool_;
    std::unique_ptr<StandIn> standIn_;
};

}  // namespace vesk
