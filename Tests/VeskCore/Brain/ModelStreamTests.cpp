#include <gtest/gtest.h>

#include "Support/ModelCalls.h"
#include "VeskCore/Brain/AnthropicStream.h"
#include "VeskCore/Brain/ChatStream.h"
#include "VeskCore/Brain/GeminiStream.h"
#include "VeskCore/Support/Executors.h"

namespace vesk::test {
namespace {

using Events = std::vector<std::string>;

std::unique_ptr<ModelStream> reader(std::string_view provider) {
    if (provider == "anthropic") return std::make_unique<AnthropicStream>();
    if (provider == "gemini") return std::make_unique<GeminiStream>();
    return std::make_unique<ChatStream>("Test");
}

Events read(std::string_view provider, const std::vector<std::string_view>& pieces) {
    return heard([&](const BrainProvider::Sink& sink) {
        const auto stream = reader(provider);
        for (auto piece : pieces) stream->feed(piece, sink);
        stream->finish(sink);
    });
}

struct Row {
    std::string name, provider, reply;
    Events expected;
};

const std::vector<Row>& rows() {
    static const std::vector<Row> all{
        {"an answer with thinking and usage",
         "anthropic",
         R"(event: message_start
data: {"type":"message_start","message":{"id":"msg_1","usage":{"input_tokens":10,"cache_creation_input_tokens":7,"cache_read_input_tokens":900,"output_tokens":1}}}

event: ping
data: {"type":"ping"}

event: content_block_start
data: {"type":"content_block_start","index":0,"content_block":{"type":"thinking","thinking":""}}

event: content_block_delta
data: {"type":"content_block_delta","index":0,"delta":{"type":"thinking_delta","thinking":"Hm…"}}

event: content_block_delta
data: {"type":"content_block_delta","index":0,"delta":{"type":"signature_delta","signature":"EqQB"}}

event: content_block_delta
data:{"type":"content_block_delta","index":1,"delta":{"type":"text_delta","text":"Grüße 😀\nA"}}

event: content_block_delta
data: {"type":"content_block_delta","index":1,"delta":{"type":"text_delta","text":""}}

event: message_delta
data: {"type":"message_delta","delta":{"stop_reason":"max_tokens","stop_sequence":null},"usage":{"output_tokens":15}}

event: message_stop
data: {"type":"message_stop"}

)",
         {"usage: 17 in, 1 out", "thinking: Hm…", "text: Grüße 😀\nA", "usage: 17 in, 15 out",
          "done: max_tokens"}},
        {"garbage between good lines",
         "anthropic",
         "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"a\"}}\n"
         "data: {broken\n"
         "data: []\n"
         "data: {\"type\":\"content_block_delta\",\"delta\":\"no object\"}\n"
         "data: {\"delta\":{\"type\":\"text_delta\",\"text\":\"without a type\"}}\n"
         "data: {\"type\":\"message_start\",\"message\":{\"usage\":{\"input_tokens\":\"3\"}}}\n"
         ": comment\nretry: 3\ndata:\ndata: \n\xFF\xFE garbage\n"
         "DATA: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"X\"}}\n"
         "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"b\"}}\n",
         {"text: a", "text: b", "done"}},
        {"cut before its end",
         "anthropic",
         "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":\"end_turn\"}}\n"
         "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"la",
         {"done: end_turn"}},
        {"a last line without an end",
         "anthropic",
         "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"last\"}}",
         {"text: last", "done"}},
        {"nothing behind the end counts",
         "anthropic",
         "data: {\"type\":\"message_stop\"}\ndata: {\"type\":\"message_stop\"}\n"
         "data: {\"type\":\"error\",\"error\":{\"type\":\"overloaded_error\"}}\n",
         {"done"}},
        {"a refusal",
         "anthropic",
         "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":\"refusal\"}}\ndata: "
         "{\"type\":\"message_stop\"}\n",
         {"failed: Claude declined to answer that. Rephrasing the question usually works."}},
        {"a refusal that is cut",
         "anthropic",
         "data: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":\"refusal\"}}\n",
         {"failed: Claude declined to answer that. Rephrasing the question usually works."}},
        {"overloaded in the middle",
         "anthropic",
         "data: {\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"a\"}}\n"
         "data: {\"type\":\"error\",\"error\":{\"type\":\"overloaded_error\",\"message\":\"Overloaded\"}}\n",
         {"text: a", "failed: Claude is overloaded right now. Wait a moment and ask again."}},
        {"a rate limit in the middle",
         "anthropic",
         "data: {\"type\":\"error\",\"error\":{\"type\":\"rate_limit_error\",\"message\":\"x\"}}\n",
         {"failed: You've hit Anthropic's rate limit. Wait a minute, or switch to a smaller model."}},
        {"another error",
         "anthropic",
         "data: {\"type\":\"error\",\"error\":{\"type\":\"api_error\",\"message\":\"Boom\"}}\n",
         {"failed: Claude stopped part-way through: Boom"}},
        {"an error without words",
         "anthropic",
         "data: {\"type\":\"error\"}\n",
         {"failed: Claude stopped part-way through: the connection ended without explanation"}},

        {"an answer with usage",
         "openai",
         R"(data: {"id":"c1","object":"chat.completion.chunk","choices":[{"index":0,"delta":{"role":"assistant","content":""},"finish_reason":null}],"usage":null}

data: {"choices":[{"index":0,"delta":{"content":"Grüße"},"finish_reason":null},{"index":1,"delta":{"content":"other"}}]}

data: {"choices":[{"index":0,"delta":{},"finish_reason":"length"}]}

data: {"choices":[],"usage":{"prompt_tokens":12,"completion_tokens":34,"total_tokens":46}}

data: [DONE]

data: {"choices":[{"delta":{"content":"late"}}]}
)",
         {"text: Grüße", "usage: 12 in, 34 out", "done: length"}},
        {"without the end's mark",
         "openai",
         "data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\r\n\r\n",
         {"text: a", "done"}},
        {"thinking alone is an answer",
         "openai",
         "data: {\"choices\":[{\"delta\":{\"reasoning\":\"r\"}}]}\n"
         "data: {\"choices\":[{\"delta\":{\"reasoning_content\":\"s\",\"content\":null}}]}\ndata: [DONE]\n",
         {"thinking: r", "thinking: s", "done"}},
        {"thinking goes before the text of its chunk",
         "openai",
         "data: {\"choices\":[{\"delta\":{\"content\":\"t\",\"reasoning_content\":\"r\"}}]}\n",
         {"thinking: r", "text: t", "done"}},
        {"an unreadable chunk does not end an answer",
         "openai",
         "data: {\"choices\":7}\ndata: nonsense\ndata: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n",
         {"text: a", "done"}},
        {"nothing but unreadable chunks",
         "openai",
         "data: {\"message\":{\"content\":\"of another dialect\"}}\ndata: second\ndata: [DONE]\n",
         {"failed: Test: it streamed no readable text. First unrecognised chunk: "
          "{\"message\":{\"content\":\"of another dialect\"}}"}},
        {"an error in the middle",
         "openai",
         "data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n"
         "data: {\"error\":{\"message\":\"Model unloaded.\",\"code\":500}}\n",
         {"text: a", "failed: Model unloaded."}},
        {"an error without words",
         "openai",
         "data: {\"error\":{}}\n",
         {"failed: The provider reported an error but didn't say what it was."}},
        {"plain JSON",
         "openai",
         "{\"choices\":[{\"message\":{\"content\":\"a\"}}]}",
         {"failed: Test: it sent no event-stream data. The server may not support `stream: true`."}},
        {"an empty answer",
         "openai",
         "data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"stop\"}]}\ndata: [DONE]\n",
         {"done: stop"}},

        {"an answer with thoughts",
         "gemini",
         R"(data: {"candidates":[{"content":{"parts":[{"text":"**Weighing**","thought":true}],"role":"model"},"index":0}],"usageMetadata":{"promptTokenCount":8,"thoughtsTokenCount":20}}

data: {"candidates":[{"content":{"parts":[{"text":"Grüße"},{"text":" 😀"},{"functionCall":{}}],"role":"model"},"index":0},{"content":{"parts":[{"text":"other"}]}}]}

data: {"candidates":[{"content":{"parts":[{"text":""}]},"finishReason":"STOP"}],"usageMetadata":{"promptTokenCount":8,"candidatesTokenCount":5,"thoughtsTokenCount":20}}

)",
         {"thinking: **Weighing**", "text: Grüße", "text:  😀", "usage: 8 in, 25 out", "done: STOP"}},
        {"the budget spent on thinking",
         "gemini",
         "data: {\"candidates\":[{\"content\":{\"parts\":[{\"text\":\"t\",\"thought\":true}]},"
         "\"finishReason\":\"MAX_TOKENS\"}]}\n",
         {"thinking: t",
          "failed: Gemini spent its whole response budget thinking and had none left to answer with. Raising "
          "the "
          "response limit, or asking a narrower question, usually clears it."}},
        {"the budget spent on an answer",
         "gemini",
         "data: "
         "{\"candidates\":[{\"content\":{\"parts\":[{\"text\":\"t\"}]},\"finishReason\":\"MAX_TOKENS\"}]}\n",
         {"text: t", "done: MAX_TOKENS"}},
        {"a declined prompt",
         "gemini",
         "data: {\"promptFeedback\":{\"blockReason\":\"SAFETY\"}}\n",
         {"failed: Gemini declined to answer this one (SAFETY). Rewording the question, or narrowing the "
          "notes it "
          "draws on, usually clears it."}},
        {"a declined answer",
         "gemini",
         "data: {\"candidates\":[{\"finishReason\":\"RECITATION\"}]}\n",
         {"failed: Gemini declined to answer this one (RECITATION). Rewording the question, or narrowing the "
          "notes it draws on, usually clears it."}},
        {"no answer at all",
         "gemini",
         "data: {\"candidates\":[{\"finishReason\":\"STOP\"}]}\n",
         {"failed: Unexpected response from the provider: Gemini finished without writing an answer"}},
        {"an error in the middle",
         "gemini",
         "data: {\"candidates\":[{\"content\":{\"parts\":[{\"text\":\"t\"}]}}]}\n"
         "data: {\"error\":{\"code\":503,\"message\":\"The model is "
         "overloaded.\",\"status\":\"UNAVAILABLE\"}}\n",
         {"text: t", "failed: Provider error 503: The model is overloaded."}},
        {"garbage",
         "gemini",
         "data: nonsense\ndata: {\"candidates\":{}}\ndata: "
         "{\"candidates\":[{\"content\":{\"parts\":[{\"text\":\"t\"}]}}]}",
         {"text: t", "done"}},
    };
    return all;
}

TEST(ModelStreams, ReadRepliesTheSameWhereverTheyAreCut) {
    for (const auto& row : rows()) {
        const std::string_view reply = row.reply;
        EXPECT_EQ(read(row.provider, {reply}), row.expected) << row.provider << ": " << row.name;
        for (std::size_t at = 1; at < reply.size(); ++at) {
            ASSERT_EQ(read(row.provider, {reply.substr(0, at), reply.substr(at)}), row.expected)
                << row.provider << ": " << row.name << ", cut at " << at;
        }
        std::vector<std::string_view> bytes;
        for (std::size_t at = 0; at < reply.size(); ++at) bytes.push_back(reply.substr(at, 1));
        EXPECT_EQ(read(row.provider, bytes), row.expected) << row.name << ", byte by byte";
    }
}

TEST(ModelStreams, ReadEveryKindOfLineEnd) {
    for (const std::string_view end : {"\n", "\r\n", "\r"}) {
        std::string reply = "\xEF\xBB\xBF";
        for (const std::string_view text : {"a", "b"}) {
            reply += "data: {\"choices\":[{\"delta\":{\"content\":\"" + std::string(text) + "\"}}]}";
            reply.append(end).append(end);
        }
        for (std::size_t at = 0; at < reply.size(); ++at) {
            const std::string_view whole = reply;
            ASSERT_EQ(read("openai", {whole.substr(0, at), whole.substr(at)}),
                      (Events{"text: a", "text: b", "done"}))
                << at;
        }
    }
}

TEST(ModelStreams, KeepNoLineWithoutEnd) {
    for (const auto* provider : {"anthropic", "openai", "gemini"}) {
        const auto stream = reader(provider);
        const std::string piece(1 << 20, 'x');
        const auto events = heard([&](const BrainProvider::Sink& sink) {
            stream->feed("data: ", sink);
            for (int i = 0; i < 100; ++i) stream->feed(piece, sink);
        });
        EXPECT_EQ(events,
                  Events{"failed: Unexpected response from the provider: a line of the reply is longer "
                         "than 4 MB"});
    }
}

TEST(ModelStreams, StopAtTheNextLine) {
    auto stop = freshStopSource();
    const auto stream = reader("openai");
    const auto line = "data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n";
    Events events;
    EXPECT_THROW(stream->feed(
                     std::string(line) + line,
                     [&](const BrainEvent& event) {
                         events.push_back(words(event));
                         stop.request_stop();
                     },
                     stop.get_token()),
                 BrainError);
    EXPECT_EQ(events, Events{"text: a"});
}

}  // namespace
}  // namespace vesk::test
