#include "VeskCore/Brain/ModelStream.h"

#include "VeskCore/Support/Text.h"

namespace vesk {

void StreamLines::emit(std::string_view text, const Line& line) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (isFirst_ && text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    isFirst_ = false;
    line(text);
}

void StreamLines::feed(std::string_view bytes, const Line& line) {
    while (!bytes.empty()) {
        if (std::exchange(afterCarriageReturn_, false) && bytes.front() == '\n') {
            bytes.remove_prefix(1);
            continue;
        }
        const auto end = bytes.find_first_of("\r\n");
        const auto piece = bytes.substr(0, end);
        if (partial_.size() + piece.size() > maxLineBytes) {
            throw BrainError(BrainError::Decoding{"a line of the reply is longer than 4 MB"});
        }
        if (end == std::string_view::npos) {
            partial_ += piece;
            return;
        }
        afterCarriageReturn_ = bytes[end] == '\r';
        bytes.remove_prefix(end + 1);
        if (partial_.empty()) {
            emit(piece, line);
        } else {
            partial_ += piece;
            const std::string whole = std::exchange(partial_, {});
            emit(whole, line);
        }
    }
}

void StreamLines::finish(const Line& line) {
    if (partial_.empty()) return;
    const std::string whole = std::exchange(partial_, {});
    emit(whole, line);
}

void ModelStream::line(std::string_view text, const Sink& sink, const std::stop_token& stop) {
    constexpr std::string_view field = "data:";
    if (stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
    if (enough_ || !text.starts_with(field)) return;
    sawData_ = true;
    const auto data = trim(text.substr(field.size()));
    if (!data.empty()) payload(data, sink);
}

void ModelStream::feed(std::string_view bytes, const Sink& sink, const std::stop_token& stop) {
    lines_.feed(bytes, [&](std::string_view text) { line(text, sink, stop); });
}

void ModelStream::finish(const Sink& sink, const std::stop_token& stop) {
    lines_.finish([&](std::string_view text) { line(text, sink, stop); });
    if (stop.stop_requested()) throw BrainError(BrainError::Cancelled{});
    end(sink);
}

std::string ModelStream::shown(std::string_view words) const {
    return withoutSecret(words, secret_);
}

std::optional<RefusedCall> readModelStream(HttpTransport& transport, const HttpRequest& request,
                                           const std::function<bool(int)>& accepts, std::size_t bodyLimit,
                                           ModelStream& stream, const ModelStream::Sink& sink,
                                           const std::stop_token& stop) {
    std::optional<RefusedCall> refused;
    stream.setSecret(request.secret);
    try {
        transport.send(request,
                       {.head =
                            [&](const HttpHead& head) {
                                if (!accepts(head.status)) refused = RefusedCall{.head = head, .body = {}};
                            },
                        .body =
                            [&](std::string_view bytes) {
                                if (refused) {
                                    refused->body += bytes;
                                    return refused->body.size() < bodyLimit;
                                }
                                stream.feed(bytes, sink, stop);
                                return !stream.hasEnough();
                            }},
                       stop);
    } catch (const HttpError& error) {
        // A connection that breaks behind the answer, or inside the words of a refusal, takes nothing from
        // it.
        if (error.kind == HttpError::Kind::cancelled || !(refused || stream.isComplete())) throw;
    }
    if (!refused) stream.finish(sink, stop);
    if (refused) refused->body = withoutSecret(refused->body, request.secret);
    return refused;
}

void throwingBrainErrors(const std::stop_token& stop,
                         const std::function<BrainError(const HttpError&)>& readable,
                         const std::function<void()>& call) {
    try {
        call();
    } catch (const HttpError& error) {
        if (error.kind == HttpError::Kind::cancelled || stop.stop_requested()) {
            throw BrainError(BrainError::Cancelled{});
        }
        throw readable(error);
    } catch (const BrainError&) {
        throw;
    } catch (const Error& error) {
        throw BrainError(BrainError::Decoding{error.description()});
    }
}

}  // namespace vesk
