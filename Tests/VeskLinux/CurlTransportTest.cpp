#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <thread>

#include "Support/ModelServer.h"
#include "VeskCore/Support/Executors.h"
#include "VeskLinux/CurlTransport.h"

namespace vesk::test {
namespace {

using Kind = HttpError::Kind;
using StepKind = ModelServer::Step::Kind;

HttpRequest get(const std::string& url) {
    return {.url = url};
}

/// The kind that `call` fails with; none if it doesn't.
std::optional<Kind> failureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const HttpError& error) {
        return error.kind;
    }
    return std::nullopt;
}

class CurlTransports : public testing::Test {
protected:
    ModelServer server;
    CurlTransport transport;
    std::string url(std::string_view path = "/x") const {
        return "http://" + server.address() + std::string(path);
    }
};

TEST_F(CurlTransports, HandOverTheHeadAndThenTheBody) {
    server.answer(
        {{.bytes = "HTTP/1.1 103 Early Hints\r\nLink: a\r\n\r\nHTTP/1.1 207 Multi\r\nX-One: 1\r\n"
                   "x-two:  2 \r\nTransfer-Encoding: chunked\r\nTrailer: X-Three\r\n\r\n"},
         {.kind = StepKind::eachByte, .bytes = ModelServer::chunked("one ") + ModelServer::chunked("two")},
         {.bytes = "0\r\nX-Three: 3\r\n\r\n"}});
    HttpRequest request{.method = "POST",
                        .url = url("/a?b=c"),
                        .headers = {{"X-Key", "secret"}},
                        .body = std::string("\0body", 5)};
    std::string order, body;
    HttpHead head;
    transport.send(request,
                   {.head =
                        [&](const HttpHead& given) {
                            order += "head ";
                            head = given;
                        },
                    .body =
                        [&](std::string_view bytes) {
                            if (body.empty()) order += "body";
                            body += bytes;
                            return true;
                        }},
                   {});
    EXPECT_EQ(order, "head body");
    EXPECT_EQ(head.status, 207);
    EXPECT_EQ(head.header("X-TWO"), "2");
    EXPECT_EQ(head.header("Link"), std::nullopt) << "of the announcement";
    EXPECT_EQ(head.header("X-Three"), std::nullopt) << "behind the body";
    EXPECT_EQ(body, "one two");
    auto sent = server.requests().at(0);
    EXPECT_EQ(sent.method + " " + sent.target, "POST /a?b=c");
    EXPECT_EQ(sent.body, std::string("\0body", 5));
    EXPECT_EQ(sent.headers["x-key"], "secret");
    EXPECT_EQ(sent.headers.count("expect"), 0u);
    EXPECT_EQ(sent.headers.count("accept-encoding"), 0u);
}

TEST_F(CurlTransports, TellFailuresApart) {
    const int closed = ::socket(AF_INET, SOCK_STREAM, 0);  // bound, and nobody listens
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(::bind(closed, reinterpret_cast<sockaddr*>(&address), length), 0);
    ::getsockname(closed, reinterpret_cast<sockaddr*>(&address), &length);
    const auto nobody = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));

    const auto shortly = std::chrono::milliseconds(50);
    const std::string head = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n";
    const struct {
        std::string name;
        HttpRequest request;
        ModelServer::Script script;
        std::optional<Kind> expected;
    } rows[] = {
        {"no address", get("nonsense://"), {}, Kind::badRequest},
        {"another protocol", get("file:///etc/passwd"), {}, Kind::badRequest},
        {"a line end in the address", get("http://127.0.0.1/\r\nX: y"), {}, Kind::badRequest},
        {"a line end in a header",
         {.url = url(), .headers = {{"X-Key", "a\nInjected: b"}}},
         {},
         Kind::badRequest},
        {"a name without an address",
         get("http://" + std::string(64, 'a') + ".invalid/"),
         {},
         Kind::hostNotFound},
        {"nobody listens", get(nobody), {}, Kind::cannotConnect},
        {"no HTTP", get(url()), {{.bytes = "220 mail.example ESMTP\r\n"}}, Kind::notHttp},
        {"nothing at all", get(url()), {{.bytes = ""}}, Kind::interrupted},
        {"cut inside the body",
         get(url()),
         {{.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"}},
         Kind::interrupted},
        {"torn down", get(url()), {{.bytes = head}, {.kind = StepKind::reset}}, Kind::interrupted},
        {"silence before the head",
         {.url = url(), .idleTimeout = shortly},
         {{.kind = StepKind::stall}},
         Kind::timedOut},
        {"silence inside the body",
         {.url = url(), .idleTimeout = shortly},
         {{.bytes = head + "a"}, {.kind = StepKind::stall}},
         Kind::timedOut},
        {"never an end",
         {.url = url(), .totalTimeout = shortly},
         {{.bytes = head}, {.kind = StepKind::drip, .bytes = "a"}},
         Kind::timedOut},
        {"a head without end",
         get(url()),
         {{.bytes = "HTTP/1.1 200 OK\r\n"},
          {.kind = StepKind::flood, .bytes = "X: " + std::string(1000, 'x') + "\r\n", .count = 1000000}},
         Kind::tooLarge},
        {"a body beyond the limit",
         {.url = url(), .maxBody = 1 << 20},
         {{.bytes = head}, {.kind = StepKind::flood, .bytes = std::string(65536, 'x'), .count = 1600}},
         Kind::tooLarge},
        {"a body up to the limit",
         {.url = url(), .maxBody = 65536},
         {{.bytes = head + std::string(65536, 'x')}},
         std::nullopt},
    };
    int number = 0;
    for (auto row : rows) {
        // A path of its own for each, so that a script that was not asked for waits for nobody else.
        const auto path = "/row" + std::to_string(number++) + "/";
        if (row.request.url == url()) row.request.url = url(path);
        if (!row.script.empty()) server.answer(path, row.script);
        EXPECT_EQ(failureOf([&] { transport.fetch(row.request, {}); }), row.expected) << row.name;
    }
    ::close(closed);
}

TEST_F(CurlTransports, FollowNoRedirect) {
    server.answer("/x", ModelServer::reply(307, "there", "text/plain", "Location: " + url("/y") + "\r\n"));
    const auto reply = transport.fetch({.method = "POST", .url = url(), .body = "b"}, {});
    EXPECT_EQ(reply.head.status, 307);
    EXPECT_EQ(reply.body, "there");
    EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CurlTransports, UnpackWithinTheLimit) {
    const std::string packed = [] {
        std::string text("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10);
        // One stored block, the simplest that every decompressor takes.
        const std::string plain(60000, 'x');
        text += '\x01';
        text += static_cast<char>(plain.size() & 0xFF);
        text += static_cast<char>(plain.size() >> 8);
        text += static_cast<char>(~plain.size() & 0xFF);
        text += static_cast<char>((~plain.size() >> 8) & 0xFF);
        return text + plain;
    }();
    server.answer(ModelServer::reply(200, packed, "text/plain", "Content-Encoding: gzip\r\n"));
    EXPECT_EQ(transport.fetch({.url = url()}, {}).body, packed) << "a stream is taken as it comes";
    EXPECT_EQ(
        failureOf([&] { transport.fetch({.url = url(), .maxBody = 59999, .allowsCompression = true}, {}); }),
        Kind::tooLarge);
    EXPECT_NE(server.requests().back().headers.at("accept-encoding").find("gzip"), std::string::npos);
}

TEST_F(CurlTransports, EndEarlyWhenTheCallerHasEnough) {
    server.answer({{.bytes = "HTTP/1.1 200 OK\r\n\r\nfirst"}, {.kind = StepKind::stall}});
    std::string body;
    transport.send(get(url()),
                   {.head = [](const HttpHead&) {},
                    .body =
                        [&](std::string_view bytes) {
                            body += bytes;
                            return false;
                        }},
                   {});
    EXPECT_EQ(body, "first");
}

TEST_F(CurlTransports, LetTheCallersOwnFailureThrough) {
    server.answer(ModelServer::reply(200, "x"));
    struct Mine {};
    EXPECT_THROW(transport.send(get(url()),
                                {.head = [](const HttpHead&) { throw Mine(); },
                                 .body = [](std::string_view) { return true; }},
                                {}),
                 Mine);
    EXPECT_EQ(transport.fetch(get(url()), {}).body, "x") << "the transport goes on";
}

TEST_F(CurlTransports, CancelWhatWaits) {
    server.answer({{.kind = StepKind::stall}});
    for (int i = 0; i < 3; ++i) {
        std::optional<Kind> failure;
        std::jthread worker(
            [&](std::stop_token stop) { failure = failureOf([&] { transport.fetch(get(url()), stop); }); });
        server.waitUntilStalled();
        const auto before = std::chrono::steady_clock::now();
        worker.request_stop();
        worker.join();
        const auto took = std::chrono::steady_clock::now() - before;
        RecordProperty("cancelledAfterMicroseconds" + std::to_string(i),
                       static_cast<int>(std::chrono::duration_cast<std::chrono::microseconds>(took).count()));
        EXPECT_EQ(failure, Kind::cancelled);
    }
    auto stopped = freshStopSource();
    stopped.request_stop();
    EXPECT_EQ(failureOf([&] { transport.fetch(get(url()), stopped.get_token()); }), Kind::cancelled);
    EXPECT_EQ(server.requests().size(), 3u) << "a call that was stopped before it began sends nothing";
}

/// For the length of a test.
class Environment {
public:
    Environment(const char* name, const std::string& value) : name_(name) {
        ::setenv(name, value.c_str(), 1);
    }
    ~Environment() { ::unsetenv(name_); }

private:
    const char* name_;
};

TEST_F(CurlTransports, AskTheProxyForOthersAndLoopbackDirectly) {
    ModelServer proxy;
    proxy.answer(ModelServer::reply(200, "by proxy"));
    server.answer(ModelServer::reply(200, "direct"));
    const Environment variable("http_proxy", "http://" + proxy.address());
    EXPECT_EQ(transport.fetch(get("http://model.invalid/x"), {}).body, "by proxy");
    EXPECT_EQ(transport.fetch(get(url()), {}).body, "direct");
    EXPECT_EQ(proxy.requests().at(0).target, "http://model.invalid/x");
    EXPECT_EQ(proxy.requests().size(), 1u);
}

TEST_F(CurlTransports, LetOnlyLoopbackStandIn) {
    server.answer(ModelServer::reply(200, "stand-in"));
    CurlTransport standIn(server.address());
    EXPECT_EQ(standIn.fetch(get("https://model.invalid/v1/x?y=z"), {}).body, "stand-in");
    EXPECT_EQ(standIn.fetch(get("http://127.0.0.1:1234/v1"), {}).body, "stand-in");
    const auto requests = server.requests();
    EXPECT_EQ(requests.at(0).target, "/v1/x?y=z");
    EXPECT_EQ(requests.at(0).headers.at("host"), "model.invalid");
    EXPECT_EQ(requests.at(1).headers.at("host"), "127.0.0.1:1234");
    for (const auto* address : {"192.0.2.1:80", "localhost:80", "model.invalid:80", "127.0.0.1",
                                "127.0.0.1:0", "127.0.0.1:99999", "127.0.0.1.invalid:80", "0.0.0.0:80"}) {
        CurlTransport refusing(address);
        EXPECT_EQ(failureOf([&] { refusing.fetch(get("http://model.invalid/"), {}); }), Kind::badRequest)
            << address;
    }
}

template <auto function>
struct Freed {
    template <class T>
    void operator()(T* object) const {
        function(object);
    }
};

TEST(CurlTransportSecurity, TrustsNoCertificateOfUnknownOrigin) {
    const std::unique_ptr<EVP_PKEY, Freed<&EVP_PKEY_free>> key(EVP_EC_gen("P-256"));
    const std::unique_ptr<X509, Freed<&X509_free>> certificate(X509_new());
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key.get());
    auto* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"),
                               -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    const std::unique_ptr<SSL_CTX, Freed<&SSL_CTX_free>> context(SSL_CTX_new(TLS_server_method()));
    ASSERT_EQ(SSL_CTX_use_certificate(context.get(), certificate.get()), 1);
    ASSERT_EQ(SSL_CTX_use_PrivateKey(context.get(), key.get()), 1);

    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::string heard;
    std::jthread serving([&] {
        const int client = ::accept(listener, nullptr, nullptr);
        const std::unique_ptr<SSL, Freed<&SSL_free>> connection(SSL_new(context.get()));
        SSL_set_fd(connection.get(), client);
        char byte = 0;
        if (SSL_accept(connection.get()) == 1 && SSL_read(connection.get(), &byte, 1) == 1) heard += byte;
        ::close(client);
    });
    CurlTransport transport;
    const auto url = "https://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
    EXPECT_EQ(failureOf([&] {
                  transport.fetch({.url = url, .headers = {{"x-api-key", "secret"}}}, {});
              }),
              Kind::tls);
    serving.join();
    EXPECT_EQ(heard, "");
    ::close(listener);
}

}  // namespace
}  // namespace vesk::test
