#include "VeskLinux/CurlTransport.h"

#include <arpa/inet.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <mutex>
#include <optional>

#include "VeskCore/Support/Text.h"
#include "VeskLinux/CurlLibrary.h"

namespace vesk {

namespace {

using Kind = HttpError::Kind;
using SteadyTime = std::chrono::steady_clock::time_point;

constexpr std::size_t maxHeaderBytes = std::size_t{256} << 10;
constexpr std::size_t pooledHandles = 4;

const CurlLibrary& library() {
    return CurlLibrary::shared();
}

struct UrlCleanup {
    void operator()(CURLU* url) const { library().urlCleanup(url); }
};
struct EasyCleanup {
    void operator()(CURL* easy) const { library().easyCleanup(easy); }
};
struct MultiCleanup {
    void operator()(CURLM* multi) const { library().multiCleanup(multi); }
};
using Url = std::unique_ptr<CURLU, UrlCleanup>;
using Easy = std::unique_ptr<CURL, EasyCleanup>;
using Multi = std::unique_ptr<CURLM, MultiCleanup>;

/// The strings of a request's headers, in libcurl's own list.
class HeaderList {
public:
    HeaderList() = default;
    HeaderList(const HeaderList&) = delete;
    HeaderList& operator=(const HeaderList&) = delete;
    ~HeaderList() { library().slistFreeAll(list_); }
    void add(const std::string& line) {
        auto* longer = library().slistAppend(list_, line.c_str());
        if (!longer) throw HttpError(Kind::badRequest);
        list_ = longer;
    }
    curl_slist* get() const { return list_; }

private:
    curl_slist* list_ = nullptr;
};

std::string urlPart(CURLU* url, CURLUPart part) {
    char* text = nullptr;
    if (library().urlGet(url, part, &text, 0) != CURLUE_OK) return {};
    std::string copy(text);
    library().free(text);
    return copy;
}

/// True of the numbers alone: a name would have to be looked up first.
bool isLoopbackNumber(std::string host) {
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    in_addr four{};
    if (inet_pton(AF_INET, host.c_str(), &four) == 1) return (ntohl(four.s_addr) >> 24) == 127;
    in6_addr six{};
    return inet_pton(AF_INET6, host.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
}

bool hasLineEnd(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

/// The TLS library writes to connections that their other end has closed; the signal for that must not end
/// the program. Held back on this thread alone.
class PipeSignalHeld {
public:
    PipeSignalHeld() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &former_);
    }
    PipeSignalHeld(const PipeSignalHeld&) = delete;
    PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;
    ~PipeSignalHeld() {
        const timespec now{};
        if (!wasPending_) sigtimedwait(&pipe_, nullptr, &now);
        pthread_sigmask(SIG_SETMASK, &former_, nullptr);
    }

private:
    sigset_t pipe_{}, former_{};
    bool wasPending_ = false;
};

/// What libcurl's callbacks gather between two turns of the loop; nothing of the caller's runs inside them.
struct Exchange {
    std::size_t maxBody = 0;
    HttpHead head;
    bool headComplete = false, headGiven = false, tooLarge = false;
    std::size_t headerBytes = 0, bodyBytes = 0;
    std::string pending;
    curl_off_t moved = 0;
    SteadyTime lastActivity;
};

/// "HTTP/1.1 200 OK": the number in the middle.
int statusOf(std::string_view line) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos) return 0;
    const auto rest = line.substr(blank + 1);
    return static_cast<int>(parseInteger(rest.substr(0, rest.find(' '))).value_or(0));
}

std::size_t takeHeader(char* data, std::size_t size, std::size_t count, void* user) {
    auto& exchange = *static_cast<Exchange*>(user);
    const std::size_t bytes = size * count;
    exchange.lastActivity = std::chrono::steady_clock::now();
    exchange.headerBytes += bytes;
    if (exchange.headerBytes > maxHeaderBytes) {
        exchange.tooLarge = true;
        return 0;
    }
    if (exchange.headComplete) return bytes;  // a trailer
    const auto line = trim(std::string_view(data, bytes));
    if (line.empty()) {
        // Statuses below 200 only announce the reply.
        exchange.headComplete = exchange.head.status >= 200;
    } else if (line.starts_with("HTTP/")) {
        exchange.head = {.status = statusOf(line), .headers = {}};
    } else if (const auto colon = line.find(':'); colon != std::string_view::npos) {
        exchange.head.headers.push_back(
            {repairedUtf8(trim(line.substr(0, colon))), repairedUtf8(trim(line.substr(colon + 1)))});
    }
    return bytes;
}

std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* user) {
    auto& exchange = *static_cast<Exchange*>(user);
    const std::size_t bytes = size * count;
    exchange.lastActivity = std::chrono::steady_clock::now();
    if (bytes > exchange.maxBody - exchange.bodyBytes) {
        exchange.tooLarge = true;
        return 0;
    }
    exchange.bodyBytes += bytes;
    exchange.pending.append(data, bytes);
    return bytes;
}

int takeProgress(void* user, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded) {
    auto& exchange = *static_cast<Exchange*>(user);
    if (downloaded + uploaded != exchange.moved) {
        exchange.moved = downloaded + uploaded;
        exchange.lastActivity = std::chrono::steady_clock::now();
    }
    return 0;
}

HttpError failure(CURLcode code) {
    switch (code) {
        case CURLE_URL_MALFORMAT:
            return HttpError(Kind::badRequest);
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return HttpError(Kind::hostNotFound);
        case CURLE_COULDNT_CONNECT:
        case CURLE_INTERFACE_FAILED:
        case CURLE_PROXY:
            return HttpError(Kind::cannotConnect);
        case CURLE_OPERATION_TIMEDOUT:
            return HttpError(Kind::timedOut);
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_ENGINE_INITFAILED:
            return HttpError(Kind::tls, library().easyStrerror(code));
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:  // an answer in HTTP/0.9, which is any bytes at all
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return HttpError(Kind::notHttp);
        case CURLE_FILESIZE_EXCEEDED:
            return HttpError(Kind::tooLarge);
        default:
            return HttpError(Kind::interrupted);
    }
}

template <class T>
void set(CURL* easy, CURLoption option, T value) {
    if (library().easySetopt(easy, option, value) != CURLE_OK) throw HttpError(Kind::badRequest);
}

long milliseconds(Duration duration) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

}  // namespace

struct CurlTransport::StandIn {
    std::string host, port;
    bool isUsable = false;
};

/// Handles that wait for their next exchange, each with the connections that it left open.
class CurlTransport::Pool {
public:
    Multi take() {
        {
            const std::lock_guard guard(idleLock_);
            if (!idle_.empty()) {
                Multi last = std::move(idle_.back());
                idle_.pop_back();
                return last;
            }
        }
        Multi fresh(library().multiInit());
        if (!fresh) throw HttpError(Kind::badRequest);
        library().multiSetopt(fresh.get(), CURLMOPT_MAXCONNECTS, 4L);
        return fresh;
    }
    void putBack(Multi multi) {
        const std::lock_guard guard(idleLock_);
        if (idle_.size() < pooledHandles) idle_.push_back(std::move(multi));
    }

private:
    std::mutex idleLock_;
    std::vector<Multi> idle_;
};

CurlTransport::CurlTransport(std::string_view standIn) : pool_(std::make_unique<Pool>()) {
    if (standIn.empty()) return;
    standIn_ = std::make_unique<StandIn>();
    const auto colon = standIn.rfind(':');
    if (colon == std::string_view::npos) return;
    standIn_->host = standIn.substr(0, colon);
    standIn_->port = standIn.substr(colon + 1);
    const auto number = parseInteger(standIn_->port);
    standIn_->isUsable = isLoopbackNumber(standIn_->host) && number && *number > 0 && *number < 65536;
}

CurlTransport::~CurlTransport() = default;

namespace {

/// One request on its handle, and the handle on its multi handle for as long as this lives. A connection
/// whose reply was not read to its end is closed with it.
class Transfer {
public:
    Transfer(CURLM* multi, const HttpRequest& request, Exchange& exchange)
        : multi_(multi), easy_(library().easyInit()) {
        if (!easy_) throw HttpError(Kind::badRequest);
        exchange.maxBody = request.maxBody;
        exchange.lastActivity = std::chrono::steady_clock::now();
        CURL* easy = easy_.get();
        set(easy, CURLOPT_PROTOCOLS_STR, "http,https");
        set(easy, CURLOPT_FOLLOWLOCATION, 0L);
        set(easy, CURLOPT_SSL_VERIFYPEER, 1L);
        set(easy, CURLOPT_SSL_VERIFYHOST, 2L);
        set(easy, CURLOPT_HTTP09_ALLOWED, 0L);
        set(easy, CURLOPT_NOSIGNAL, 1L);
        // A name that is still being looked up keeps nobody waiting: the look-up ends on a thread of its own.
        set(easy, CURLOPT_QUICK_EXIT, 1L);
        set(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        set(easy, CURLOPT_USERAGENT, "Vesk");
        set(easy, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(request.connectTimeout));
        set(easy, CURLOPT_HEADERFUNCTION, &takeHeader);
        set(easy, CURLOPT_HEADERDATA, &exchange);
        set(easy, CURLOPT_WRITEFUNCTION, &takeBody);
        set(easy, CURLOPT_WRITEDATA, &exchange);
        set(easy, CURLOPT_XFERINFOFUNCTION, &takeProgress);
        set(easy, CURLOPT_XFERINFODATA, &exchange);
        set(easy, CURLOPT_NOPROGRESS, 0L);
        if (request.allowsCompression) set(easy, CURLOPT_ACCEPT_ENCODING, "");
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
    ~Transfer() {
        if (added_) library().multiRemoveHandle(multi_, easy_.get());
    }

    CURL* easy() const { return easy_.get(); }

    void address(const HttpRequest& request, const std::string* standInHost, const std::string* standInPort) {
        url_.reset(library().url());
        CURLU* url = url_.get();
        if (!url || hasLineEnd(request.url) ||
            library().urlSet(url, CURLUPART_URL, request.url.c_str(), 0) != CURLUE_OK) {
            throw HttpError(Kind::badRequest);
        }
        const auto scheme = urlPart(url, CURLUPART_SCHEME);
        if (scheme != "http" && scheme != "https") throw HttpError(Kind::badRequest);
        const auto host = urlPart(url, CURLUPART_HOST);
        bool direct = isLoopbackNumber(host) || asciiLowercased(host) == "localhost";
        if (standInHost) {
            const auto port = urlPart(url, CURLUPART_PORT);
            headers_.add("Host: " + (port.empty() ? host : host + ":" + port));
            direct = true;
            if (library().urlSet(url, CURLUPART_SCHEME, "http", 0) != CURLUE_OK ||
                library().urlSet(url, CURLUPART_HOST, standInHost->c_str(), 0) != CURLUE_OK ||
                library().urlSet(url, CURLUPART_PORT, standInPort->c_str(), 0) != CURLUE_OK) {
                throw HttpError(Kind::badRequest);
            }
        }
        set(easy_.get(), CURLOPT_CURLU, url);
        if (direct) set(easy_.get(), CURLOPT_PROXY, "");
    }

    void message(const HttpRequest& request) {
        for (const auto& header : request.headers) {
            if (header.name.empty() || header.name.find(':') != std::string::npos ||
                hasLineEnd(header.name) || hasLineEnd(header.value)) {
                throw HttpError(Kind::badRequest);
            }
            headers_.add(header.name + ": " + header.value);
        }
        if (request.method == "POST") {
            headers_.add("Expect:");  // an announcement would cost a round trip
            set(easy_.get(), CURLOPT_POST, 1L);
            set(easy_.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
            set(easy_.get(), CURLOPT_POSTFIELDS, request.body.c_str());
        } else if (request.method != "GET") {
            throw HttpError(Kind::badRequest);
        }
        set(easy_.get(), CURLOPT_HTTPHEADER, headers_.get());
    }

    void start() {
        if (library().multiAddHandle(multi_, easy_.get()) != CURLM_OK) throw HttpError(Kind::badRequest);
        added_ = true;
    }

    /// None as long as it runs.
    std::optional<CURLcode> result() const {
        int left = 0;
        while (const auto* message = library().multiInfoRead(multi_, &left)) {
            if (message->msg == CURLMSG_DONE && message->easy_handle == easy_.get())
                return message->data.result;
        }
        return std::nullopt;
    }

private:
    CURLM* multi_;
    Url url_;
    HeaderList headers_;
    Easy easy_;  // goes first: it borrows the two above
    bool added_ = false;
};

/// Hands over what has come; false if the caller has enough.
bool deliver(Exchange& exchange, const HttpTransport::Sink& sink) {
    if (!exchange.headComplete) return true;
    if (!exchange.headGiven) {
        exchange.headGiven = true;
        sink.head(exchange.head);
    }
    if (exchange.pending.empty()) return true;
    std::string bytes;
    bytes.swap(exchange.pending);
    const bool wantsMore = sink.body(bytes);
    // The caller's own time is not the server's silence.
    exchange.lastActivity = std::chrono::steady_clock::now();
    return wantsMore;
}

void run(CURLM* multi, const HttpRequest& request, const Transfer& transfer, Exchange& exchange,
         const HttpTransport::Sink& sink, const std::stop_token& stop) {
    const auto deadline = std::chrono::steady_clock::now() + request.totalTimeout;
    const std::stop_callback wake(stop, [multi] { library().multiWakeup(multi); });
    for (;;) {
        int running = 0;
        if (library().multiPerform(multi, &running) != CURLM_OK) throw HttpError(Kind::interrupted);
        if (stop.stop_requested()) throw HttpError(Kind::cancelled);
        if (!deliver(exchange, sink)) return;
        if (stop.stop_requested()) throw HttpError(Kind::cancelled);
        if (exchange.tooLarge) throw HttpError(Kind::tooLarge);
        if (const auto code = transfer.result()) {
            if (*code != CURLE_OK) throw failure(*code);
            if (!exchange.headGiven) throw HttpError(Kind::notHttp);
            return;
        }
        const auto now = std::chrono::steady_clock::now();
        const auto due = std::min<SteadyTime>(deadline, exchange.lastActivity + request.idleTimeout);
        if (now >= due) throw HttpError(Kind::timedOut);
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - now).count();
        const int patience = static_cast<int>(std::min<std::chrono::milliseconds::rep>(wait, 1000));
        if (library().multiPoll(multi, nullptr, 0, patience, nullptr) != CURLM_OK)
            throw HttpError(Kind::interrupted);
    }
}

}  // namespace

void CurlTransport::send(const HttpRequest& request, const Sink& sink, std::stop_token stop) {
    if (stop.stop_requested()) throw HttpError(Kind::cancelled);
    if (standIn_ && !standIn_->isUsable) {
        throw HttpError(Kind::badRequest, "only a loopback address can stand in for the servers");
    }
    const PipeSignalHeld held;
    Multi multi = pool_->take();
    {
        Exchange exchange;
        Transfer transfer(multi.get(), request, exchange);
        transfer.address(request, standIn_ ? &standIn_->host : nullptr, standIn_ ? &standIn_->port : nullptr);
        transfer.message(request);
        transfer.start();
        run(multi.get(), request, transfer, exchange, sink, stop);
    }
    // After a failure the handle goes, and all its connections with it.
    pool_->putBack(std::move(multi));
}

}  // namespace vesk
