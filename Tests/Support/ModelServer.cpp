#include "Support/ModelServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "VeskCore/Support/Text.h"

namespace vesk::test {

ModelServer::ModelServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ending_ = ::eventfd(0, EFD_CLOEXEC);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    if (::bind(listener_, generic, length) != 0 || ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, generic, &length) != 0) {
        throw std::runtime_error("no loopback socket");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::jthread([this] { serve(); });
}

ModelServer::~ModelServer() {
    const std::uint64_t one = 1;
    (void)!::write(ending_, &one, sizeof one);
    thread_.join();
    ::close(listener_);
    ::close(ending_);
}

std::string ModelServer::address() const {
    return "127.0.0.1:" + std::to_string(port_);
}

void ModelServer::answer(std::string_view targetPrefix, Script script) {
    const std::lock_guard guard(lock_);
    scripts_[std::string(targetPrefix)].push_back(std::move(script));
}

std::vector<ModelServer::Request> ModelServer::requests() const {
    const std::lock_guard guard(lock_);
    return requests_;
}

void ModelServer::waitUntilStalled() {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return stalled_; });
    stalled_ = false;
}

ModelServer::Script ModelServer::reply(int status, std::string_view body, std::string_view contentType,
                                       std::string_view moreHeaders) {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\nContent-Type: ";
    text.append(contentType).append("\r\nContent-Length: ").append(std::to_string(body.size()));
    text.append("\r\nConnection: close\r\n").append(moreHeaders).append("\r\n").append(body);
    return {{.kind = Step::Kind::send, .bytes = text}};
}

std::string ModelServer::eventStreamHead() {
    return "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream; charset=utf-8\r\nCache-Control: no-cache\r\n"
           "Connection: close\r\n\r\n";
}

ModelServer::Script ModelServer::events(std::string_view body) {
    return {{.kind = Step::Kind::send, .bytes = eventStreamHead()},
            {.kind = Step::Kind::send, .bytes = std::string(body)}};
}

std::string ModelServer::chunked(std::string_view piece) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string size;
    for (auto rest = piece.size(); rest > 0 || size.empty(); rest /= 16) size.insert(0, 1, digits[rest % 16]);
    return size.append("\r\n").append(piece).append("\r\n");
}

bool ModelServer::wait(int client, int milliseconds) {
    pollfd ends[] = {{ending_, POLLIN, 0}, {client, POLLIN, 0}};
    ::poll(ends, 2, milliseconds);
    return !(ends[0].revents & POLLIN);
}

void ModelServer::serve() {
    while (wait(listener_, -1)) {
        const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) continue;
        const int one = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        exchange(client);
        ::close(client);
    }
}

bool ModelServer::sendAll(int client, std::string_view bytes) {
    while (!bytes.empty()) {
        pollfd ends[] = {{ending_, POLLIN, 0}, {client, POLLOUT, 0}};
        ::poll(ends, 2, -1);
        if (ends[0].revents & POLLIN) return false;
        const auto sent = ::send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void ModelServer::tellStalled() {
    const std::lock_guard guard(lock_);
    stalled_ = true;
    changed_.notify_all();
}

bool ModelServer::play(int client, const Step& step) {
    char byte = 0;
    const auto clientHasGone = [&] { return ::recv(client, &byte, 1, MSG_DONTWAIT) == 0; };
    switch (step.kind) {
        case Step::Kind::send:
            return sendAll(client, step.bytes);
        case Step::Kind::eachByte:
            for (char c : step.bytes) {
                if (!sendAll(client, {&c, 1})) return false;
            }
            return true;
        case Step::Kind::flood:
            for (std::size_t i = 0; i < step.count; ++i) {
                if (!sendAll(client, step.bytes)) return false;
            }
            return true;
        case Step::Kind::drip:
            for (std::size_t i = 0; sendAll(client, {&step.bytes[i % step.bytes.size()], 1}); ++i) {
                if (i == 0) tellStalled();
                if (!wait(client, 1) || clientHasGone()) return false;
            }
            return false;
        case Step::Kind::stall:
            tellStalled();
            while (wait(client, -1)) {
                if (::recv(client, &byte, 1, 0) <= 0) break;
            }
            return false;
        case Step::Kind::reset: {
            const linger hard{1, 0};
            ::setsockopt(client, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
            return false;
        }
    }
    return false;
}

void ModelServer::exchange(int client) {
    std::string text;
    const auto read = [&] {
        char buffer[65536];
        if (!wait(client, -1)) return false;
        const auto got = ::recv(client, buffer, sizeof buffer, 0);
        if (got > 0) text.append(buffer, static_cast<std::size_t>(got));
        return got > 0;
    };
    std::size_t headEnd = 0;
    while ((headEnd = text.find("\r\n\r\n")) == std::string::npos) {
        if (!read()) return;
    }
    Request request;
    const auto lines = splitLines(std::string_view(text).substr(0, headEnd), true);
    const auto words = split(lines.front(), ' ');
    if (words.size() < 3) return;
    request.method = words[0];
    request.target = words[1];
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const auto colon = lines[i].find(':');
        if (colon == std::string_view::npos) continue;
        request.headers[asciiLowercased(lines[i].substr(0, colon))] =
            std::string(trim(lines[i].substr(colon + 1)));
    }
    const auto length = request.headers.find("content-length");
    const auto bodySize = length != request.headers.end()
                              ? static_cast<std::size_t>(parseInteger(length->second).value_or(0))
                              : 0;
    while (text.size() < headEnd + 4 + bodySize) {
        if (!read()) return;
    }
    request.body = text.substr(headEnd + 4);

    Script script = reply(404, R"({"error":{"message":"no script"}})");
    {
        const std::lock_guard guard(lock_);
        // The longest prefix that fits: a target of its own goes before what answers everything.
        std::deque<Script>* waiting = nullptr;
        for (auto& [prefix, queue] : scripts_) {
            if (request.target.starts_with(prefix)) waiting = &queue;
        }
        if (waiting) {
            script = waiting->front();
            if (waiting->size() > 1) waiting->pop_front();
        }
        requests_.push_back(std::move(request));
    }
    for (const auto& step : script) {
        if (!play(client, step)) return;
    }
    ::shutdown(client, SHUT_WR);
    // Unread bytes at the close would reset the connection under the last of the answer.
    char rest[4096];
    while (wait(client, -1) && ::recv(client, rest, sizeof rest, 0) > 0) {
    }
}

}  // namespace vesk::test
