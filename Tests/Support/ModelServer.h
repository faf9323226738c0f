// A model service on the loopback interface that answers from scripts, well or badly.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace vesk::test {

/// Plain sockets and one thread: connections are served one after the other, each for one exchange.
class ModelServer {
public:
    struct Step {
        enum class Kind {
            send,      ///< `bytes`
            eachByte,  ///< `bytes`, one write a byte
            flood,     ///< `bytes` again and again, `count` times or until the client goes
            drip,      ///< a byte of `bytes` each millisecond, from the front again, until the client goes
            stall,     ///< nothing more until the client goes
            reset,     ///< the connection torn down
        };
        Kind kind = Kind::send;
        std::string bytes;
        std::size_t count = 0;
    };
    using Script = std::vector<Step>;

    struct Request {
        std::string method, target, body;
        std::map<std::string, std::string> headers;  ///< names in lower case
    };

    ModelServer();
    ~ModelServer();
    ModelServer(const ModelServer&) = delete;
    ModelServer& operator=(const ModelServer&) = delete;

    std::string address() const;  ///< "127.0.0.1:40123"

    /// Scripts wait for the requests whose target begins so, one each; the last one stays. Without a script
    /// the answer is 404.
    void answer(std::string_view targetPrefix, Script script);
    void answer(Script script) { answer("", std::move(script)); }

    std::vector<Request> requests() const;
    /// Blocks until a script has come to a stall, or to its first dripped byte.
    void waitUntilStalled();

    // Scripts.
    static Script reply(int status, std::string_view body, std::string_view contentType = "application/json",
                        std::string_view moreHeaders = "");
    /// Status 200 and the head of an event stream that ends with the connection.
    static std::string eventStreamHead();
    static Script events(std::string_view body);
    static std::string chunked(std::string_view piece);

private:
    void serve();
    void exchange(int client);
    bool play(int client, const Step& step);
    bool sendAll(int client, std::string_view bytes);
    void tellStalled();
    /// False when the server ends; true when `client` has something, or after `milliseconds`.
    bool wait(int client, int milliseconds);

    int listener_ = -1, ending_ = -1;
    std::uint16_t port_ = 0;
    mutable std::mutex lock_;  // guards the four below
    std::condition_variable changed_;
    std::map<std::string, std::deque<Script>> scripts_;
    std::vector<Request> requests_;
    bool stalled_ = false;
    std::jthread thread_;
};

}  // namespace vesk::test
