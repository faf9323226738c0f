// Note bodies of any text: what the scanner finds stands in the body.
#include <cstdint>

#include "VeskCore/Markdown/MarkdownScanner.h"
#include "VeskCore/Support/Characters.h"
#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"

using namespace vesk;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string body = decodedText(std::string(reinterpret_cast<const char*>(data), size));
    const int lines = static_cast<int>(split(body, '\n').size());
    for (const bool masksMarkup : {true, false}) {
        const NoteScan scan = MarkdownScanner::scan(body, masksMarkup);
        VESK_ENSURE(characterCount(scan.excerpt) <= 200 && isValidUtf8(scan.excerpt));
        std::size_t end = 0;
        for (const NoteScan::Wikilink& link : scan.wikilinks) {
            VESK_ENSURE(!link.target.empty() || link.heading || link.blockID);
            VESK_ENSURE(link.range.location >= end && link.range.end() <= utf16Length(body));
            end = link.range.end();
        }
        for (const NoteScan::Heading& heading : scan.headings)
            VESK_ENSURE(heading.level >= 1 && heading.level <= 6 && heading.line < lines);
        for (const NoteScan::TaskItem& task : scan.tasks) VESK_ENSURE(task.line < lines);
        for (const std::string& tag : scan.tags)
            VESK_ENSURE(containsLetterOrNumber(tag) && body.find("#" + tag) != std::string::npos);
    }
    for (const std::string_view line : split(body, '\n')) {
        VESK_ENSURE(characterCount(MarkdownScanner::maskInlineCode(line)) <= characterCount(line));
        VESK_ENSURE(isValidUtf8(MarkdownScanner::maskInlineCodeAndMarkup(line)));
        VESK_ENSURE(MarkdownScanner::withoutEmbeds(line).size() <= line.size());
        VESK_ENSURE(MarkdownScanner::plainPreview(line).size() <= line.size());
    }
    return 0;
}
