// A model's reply as it arrives: server-sent events, cut into lines wherever the network cut the bytes, read
// by each provider's own reader.
#pragma once

#include <cstddef>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>

#include "VeskCore/Brain/BrainProvider.h"
#include "VeskCore/Platform/HttpTransport.h"
#include "VeskCore/Support/BrainError.h"

namespace vesk {

/// Cuts bytes into lines ended by LF, CR LF or CR. A byte order mark in front of the first is dropped.
class StreamLines {
public:
    /// A line longer than this is no line of a reply: nothing more of it is kept.
    static constexpr std::size_t maxLineBytes = std::size_t{4} << 20;

    using Line = std::function<void(std::string_view)>;
    /// Throws BrainError::Decoding for a line that is too long, and what `line` throws.
    void feed(std::string_view bytes, const Line& line);
    /// The last line, if it had no end.
    void finish(const Line& line);

private:
    void emit(std::string_view text, const Line& line);
    std::string partial_;
    bool afterCarriageReturn_ = false;
    bool isFirst_ = true;
};

/// Reads one reply. One thread. The same events come out wherever the bytes are cut.
class ModelStream {
public:
    using Sink = BrainProvider::Sink;
    virtual ~ModelStream() = default;

    /// The key of the request: what fails the reply tells it to nobody. An answer may well hold it, for it
    /// may stand in a note.
    void setSecret(std::string secret) { secret_ = std::move(secret); }

    /// Emits the events that these bytes complete. Throws BrainError for a reply that failed, `cancelled` at
    /// the next line once `stop` is requested.
    void feed(std::string_view bytes, const Sink& sink, const std::stop_token& stop = {});
    /// The reply has ended: emits what is still owed, `done` last.
    void finish(const Sink& sink, const std::stop_token& stop = {});
    /// Nothing that may follow counts any more.
    bool isComplete() const { return complete_; }
    /// The reader needs no more bytes to finish.
    bool hasEnough() const { return enough_; }

protected:
    /// What stands behind "data:", trimmed, never empty.
    virtual void payload(std::string_view data, const Sink& sink) = 0;
    virtual void end(const Sink& sink) = 0;
    /// The server's words as an error may show them.
    std::string shown(std::string_view words) const;

    bool complete_ = false, enough_ = false;
    bool sawData_ = false;  ///< any line of data, an empty one too

private:
    void line(std::string_view text, const Sink& sink, const std::stop_token& stop);
    StreamLines lines_;
    std::string secret_;
};

/// A reply whose status says that it is none.
struct RefusedCall {
    HttpHead head;
    std::string body;  ///< its beginning
};

/// Sends the request and lets `stream` read the reply to its end. A status that `accepts` rejects comes back
/// as the refusal, its body up to the piece that reaches `bodyLimit` bytes. Throws HttpError and BrainError.
std::optional<RefusedCall> readModelStream(HttpTransport& transport, const HttpRequest& request,
                                           const std::function<bool(int status)>& accepts,
                                           std::size_t bodyLimit, ModelStream& stream,
                                           const ModelStream::Sink& sink, const std::stop_token& stop);

/// Runs a call so that nothing but BrainError leaves it: `readable` puts a failed exchange into words, and a
/// stopped one is `cancelled`.
void throwingBrainErrors(const std::stop_token& stop,
                         const std::function<BrainError(const HttpError&)>& readable,
                         const std::function<void()>& call);

}  // namespace vesk
