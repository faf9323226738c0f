// The editor's work on a note: a keystroke beside a frame of the screen, styling the whole beside the HTML
// renderer of md4c, the decision about a grid, and input made to be slow.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "Support/InMemoryAttributedText.h"
#include "VeskCore/Editor/MarkdownHighlighter.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Editor/TableGridCache.h"
#include "VeskCore/Support/Unicode.h"

// The library's one function (md4c-html.h); its flags for tables, task lists, strikethrough and HTML as it
// stands.
extern "C" int md_html(const char* input, unsigned length, void (*output)(const char*, unsigned, void*),
                       void* data, unsigned parserFlags, unsigned rendererFlags);

namespace {

using namespace vesk;
/// Of this thread, so that other programs do not count.
double microsecondsOfWork() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

constexpr unsigned md4cDialect = 0x0100 | 0x0200 | 0x0800;

/// A note of many kinds of lines, about `bytes` long.
std::string note(std::size_t bytes) {
    std::string text = "---\ntags: [garden]\nstatus: open\n---\n# A note\n\n";
    for (int i = 0; text.size() < bytes; ++i) {
        const std::string number = std::to_string(i);
        text += "## Section " + number +
                "\n\nThe quick brown fox jumps over the lazy dog, then rests by the [[River bank]] until the "
                "evening "
                "comes and everybody goes home. It was a **long** day for #foxes and *dogs* alike, said the "
                "miller "
                "in `chapter " +
                number +
                "` of [his book](https://example.org/book).\n\n- [ ] Feed the fox\n- [x] Walk the dog\n- "
                "Read on\n\n"
                "> A quote of no ~~small~~ weight, and nothing else of note to be said about it here.\n\n";
        if (i % 8 == 0) text += "```c\nint main(void) { return " + number + "; }\n```\n\n";
        if (i % 16 == 0) text += "| Name | Price |\n|------|------:|\n| Tea  | 3.20  |\n| Milk | 1.10  |\n\n";
        if (i % 32 == 0) text += "Some <b>bold</b> HTML with <span style=\"color: red\">colour</span>.\n\n";
    }
    return text;
}

/// Takes runs and drops them: what a view does with them is not measured here.
class Sink : public AttributedText {
public:
    explicit Sink(std::u16string text) : text_(std::move(text)) {}

    void edit(std::size_t at, char16_t typed) {
        text_.insert(at, 1, typed);
        didEdit_({at, 1}, 1);
    }
    std::u16string_view text() const override { return text_; }
    std::vector<AttributeRun> attributes(TextRange) const override { return {}; }
    void setAttributes(TextRange range, const std::vector<AttributeRun>& runs, bool) override {
        benchmark::DoNotOptimize(runs.data());
        styled += range.length;
    }
    void clearSpellingMarks(TextRange) override {}
    void setDidEdit(DidEdit didEdit) override { didEdit_ = std::move(didEdit); }

    std::size_t styled = 0;

private:
    std::u16string text_;
    DidEdit didEdit_;
};

/// A letter typed at `at`, again and again; the insertion into the string is not counted.
void typeAt(benchmark::State& state, std::u16string text, std::size_t at) {
    Sink storage(std::move(text));
    MarkdownHighlighter highlighter;
    std::vector<double> microseconds;
    storage.setDidEdit([&](TextRange edited, std::ptrdiff_t delta) {
        const double start = microsecondsOfWork();
        highlighter.didProcessEditing(storage, edited, delta);
        highlighter.reveal(TextRange{edited.end(), 0}, storage);
        microseconds.push_back(microsecondsOfWork() - start);
    });
    highlighter.highlight(storage, {0, storage.text().size()}, false);
    for (auto _ : state) {
        storage.edit(at, u'x');
        state.SetIterationTime(microseconds.back() / 1e6);
    }
    std::sort(microseconds.begin(), microseconds.end());
    constexpr double frame = 1e6 / 60;
    const double p99 = microseconds[microseconds.size() * 99 / 100];
    state.counters["p50_us"] = microseconds[microseconds.size() / 2];
    state.counters["p99_us"] = p99;
    state.counters["p99_of_frame"] = p99 / frame;
}

std::u16string megabyte() {
    return utf16(note(1'000'000));
}

void KeystrokeInMiddle(benchmark::State& state) {
    const auto text = megabyte();
    typeAt(state, text, text.find(u"brown fox", text.size() / 2) + 5);
}
BENCHMARK(KeystrokeInMiddle)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(2'000);

void KeystrokeAtStart(benchmark::State& state) {
    const auto text = megabyte();
    typeAt(state, text, text.find(u"brown fox") + 5);
}
BENCHMARK(KeystrokeAtStart)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(2'000);

void KeystrokeInTable(benchmark::State& state) {
    const auto text = megabyte();
    typeAt(state, text, text.find(u"Milk |", text.size() / 2) + 4);
}
BENCHMARK(KeystrokeInTable)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);

void KeystrokeInOpenFrontmatter(benchmark::State& state) {
    std::u16string text = u"---\n" + megabyte().substr(40);
    std::replace(text.begin() + 4, text.end(), u'-', u'+');
    typeAt(state, text, text.find(u"brown fox", text.size() / 2) + 5);
}
BENCHMARK(KeystrokeInOpenFrontmatter)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(500);

/// A megabyte of lines with pipes that are no table.
void KeystrokeInLog(benchmark::State& state) {
    std::u16string text;
    while (text.size() < 1'000'000) text += u"12:00:01 | warn | something happened\n";
    typeAt(state, text, text.size() / 2);
}
BENCHMARK(KeystrokeInLog)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

void KeystrokeInOneLine(benchmark::State& state) {
    typeAt(state, std::u16string(1'000'000, u'x'), 500'000);
}
BENCHMARK(KeystrokeInOneLine)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

void StyleWhole(benchmark::State& state) {
    Sink storage(megabyte());
    for (auto _ : state) {
        MarkdownHighlighter highlighter;
        highlighter.highlight(storage, {0, storage.text().size()}, false);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(storage.text().size()));
}
BENCHMARK(StyleWhole)->Unit(benchmark::kMillisecond);

void RenderHtmlMd4c(benchmark::State& state) {
    const std::string text = note(1'000'000);
    std::string html;
    for (auto _ : state) {
        html.clear();
        md_html(
            text.data(), static_cast<unsigned>(text.size()),
            [](const char* piece, unsigned size, void* into) {
                static_cast<std::string*>(into)->append(piece, size);
            },
            &html, md4cDialect, 0);
        benchmark::DoNotOptimize(html.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(RenderHtmlMd4c)->Unit(benchmark::kMillisecond);

class UnitMeasurer : public MarkdownTableGrid::Measurer {
public:
    MarkdownTableGrid::Size size(const MarkdownTableGrid::Cell& cell,
                                 std::optional<double> width) const override {
        const double natural = static_cast<double>(cell.text.size()) * 7;
        return {width ? std::min(natural, *width) : natural,
                width ? std::ceil(natural / *width) * lineHeight() : lineHeight()};
    }
    double longestWordWidth(const MarkdownTableGrid::Cell& cell) const override {
        return static_cast<double>(std::min<std::size_t>(cell.text.size(), 12)) * 7;
    }
    double lineHeight() const override { return 17; }
};

void DecideGrid(benchmark::State& state) {
    std::u16string text = u"| Name | Price |\n|---|--:|\n";
    for (int i = 0; i < 199; ++i) text += u"| Some **tea** of `kind` | [3.20](price) |\n";
    const auto tables = MarkdownTable::tables(text);
    for (auto _ : state) {
        TableGridCache cache;
        benchmark::DoNotOptimize(
            cache.decision(tables[0], text, 800, MarkdownTableGrid::Policy(14), UnitMeasurer()).used);
    }
}
BENCHMARK(DecideGrid)->Unit(benchmark::kMillisecond);

/// A pattern over as many units as the state's range says, in lines of 5,000.
void styleRepeated(benchmark::State& state, std::u16string_view pattern, bool inLines) {
    std::u16string text;
    const auto length = static_cast<std::size_t>(state.range(0));
    for (std::size_t line = 0; text.size() < length;) {
        if (inLines && line + pattern.size() > MarkdownSpans::longLineLimit - 1) {
            text += u'\n';
            line = 0;
        }
        text += pattern;
        line += pattern.size();
    }
    Sink storage(std::move(text));
    for (auto _ : state) {
        MarkdownHighlighter highlighter;
        highlighter.highlight(storage, {0, storage.text().size()}, false);
    }
    state.SetComplexityN(state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(storage.text().size()));
}

constexpr std::u16string_view hostile[] = {u"[",
                                           u"]",
                                           u"[[",
                                           u"![",
                                           u"*",
                                           u"**",
                                           u"* ",
                                           u"*a ",
                                           u"`",
                                           u"`a",
                                           u"~~",
                                           u"~~~a",
                                           u"==",
                                           u"<",
                                           u"<b>",
                                           u"<b x=\"",
                                           u"<!--",
                                           u"</b>",
                                           u"<b>x",
                                           u"#a",
                                           u"[a](",
                                           u"[]()",
                                           u"|",
                                           u"\\|",
                                           u"a|",
                                           u"> ",
                                           u"- ",
                                           u"**a**",
                                           u"<span style=\"color:red\">x"};

void Hostile(benchmark::State& state) {
    styleRepeated(state, hostile[static_cast<std::size_t>(state.range(1))], true);
}
BENCHMARK(Hostile)->Unit(benchmark::kMillisecond)->Apply([](benchmark::internal::Benchmark* b) {
    for (std::size_t i = 0; i < std::size(hostile); ++i) {
        for (const int length : {100'000, 200'000}) b->Args({length, static_cast<int>(i)});
    }
});

void MillionAsterisks(benchmark::State& state) {
    styleRepeated(state, u"*", false);
}
BENCHMARK(MillionAsterisks)->Unit(benchmark::kMillisecond)->Arg(1'000'000);

}  // namespace
