#include "VeskCore/Editor/ImageEmbeds.h"

#include <algorithm>
#include <array>

#include "VeskCore/Editor/EditorLines.h"
#include "VeskCore/Editor/MarkdownSpans.h"
#include "VeskCore/Markdown/HTMLSpans.h"
#include "VeskCore/Support/PathText.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Support/Url.h"

namespace vesk::MarkdownSpans {

namespace {

using EditorLines::piece;

constexpr std::array<std::string_view, 16> attachmentExtensions{"png",  "jpg",  "jpeg", "gif", "heic", "heif",
                                                                "webp", "tiff", "tif",  "bmp", "svg",  "pdf",
                                                                "m4a",  "wav",  "caf",  "mp3"};

struct Found {
    ImageEmbed embed;
    TextRange spelled;
};

bool hasImageTag(std::u16string_view text) {
    const auto lower = [](char16_t c) { return c >= u'A' && c <= u'Z' ? c + 32 : c + 0; };
    for (std::size_t at = text.find(u'<'); at != text.npos; at = text.find(u'<', at + 1)) {
        if (text.size() - at >= 4 && lower(text[at + 1]) == 'i' && lower(text[at + 2]) == 'm' &&
            lower(text[at + 3]) == 'g') {
            return true;
        }
    }
    return false;
}

bool mightEmbed(std::u16string_view text) {
    return text.find(u"![") != text.npos || hasImageTag(text);
}

std::optional<int> pixels(std::string_view value) {
    const std::string lowered = asciiLowercased(trim(value));
    std::string_view digits = lowered;
    if (digits.ends_with("px")) digits.remove_suffix(2);
    if (digits.empty() || digits.size() > 6 || !std::all_of(digits.begin(), digits.end(), isAsciiDigit)) {
        return std::nullopt;
    }
    return static_cast<int>(*parseInteger(digits));
}

bool hasScheme(std::string_view target) {
    if (target.empty() || !isAsciiLetter(target.front())) return false;
    const auto end = std::find_if(target.begin(), target.end(), [](char c) {
        return !isAsciiAlphanumeric(c) && c != '+' && c != '-' && c != '.';
    });
    return end != target.end() && *end == ':';
}

bool staysInside(std::string_view path) {
    for (std::size_t at = 0; at < path.size();) {
        const char32_t c = nextCodePoint(path, at);
        if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) return false;
    }
    if (path.empty() || path.front() == '/' || path.find("://") != path.npos || hasScheme(path)) return false;
    const auto pieces = split(path, '/');
    return std::find(pieces.begin(), pieces.end(), "..") == pieces.end();
}

std::optional<Found> markdownEmbed(std::u16string_view line, const LinkMatch& image) {
    TextRange target = image.target;
    const auto trimTarget = [&] {
        while (!target.empty() && isSpaceOrNewline(line[target.location])) ++target.location, --target.length;
        while (!target.empty() && isSpaceOrNewline(line[target.end() - 1])) --target.length;
    };
    trimTarget();
    if (target.length >= 2 && line[target.location] == u'<' && line[target.end() - 1] == u'>') {
        target = {target.location + 1, target.length - 2};
    }
    Found found{{image.range, {}, utf8(piece(line, target)), {}, {}, utf8(piece(line, image.text))}, target};
    if (!isEmbeddable(found.embed.target)) return std::nullopt;
    return found;
}

std::optional<Found> htmlEmbed(const HTMLSpans::Tag& tag) {
    if (tag.name != "img" || tag.isClose) return std::nullopt;
    const auto value = [&](std::string_view name) -> const std::string* {
        for (const auto& attribute : tag.attributes) {
            if (attribute.first == name) return &attribute.second;
        }
        return nullptr;
    };
    const std::string* source = value("src");
    const auto spelled = tag.valueRanges.find("src");
    if (!source || spelled == tag.valueRanges.end() || !isEmbeddable(*source)) return std::nullopt;
    Found found{{tag.range, {}, *source, {}, {}, {}}, spelled->second};
    if (const std::string* width = value("width")) found.embed.maxWidth = pixels(*width);
    if (const std::string* height = value("height")) found.embed.maxHeight = pixels(*height);
    if (const std::string* alt = value("alt")) found.embed.alt = *alt;
    return found;
}

/// Of one line, in order; offsets are the line's.
std::vector<Found> embedsOfLine(std::u16string_view line) {
    const std::vector<TextRange> code = codeRanges(line);
    const std::vector<TextRange> markup =
        line.find(u'<') == line.npos ? std::vector<TextRange>() : HTMLSpans::markupRanges(line, code);
    std::vector<Found> result;
    for (const LinkMatch& image : linkMatches(line, /*images=*/true)) {
        // An image in a comment or in an attribute's value is no image.
        if (intersectsAny(code, image.range) || intersectsAny(markup, {image.range.location, 2})) continue;
        if (auto found = markdownEmbed(line, image)) result.push_back(*std::move(found));
    }
    if (!markup.empty()) {
        for (const HTMLSpans::Token& token : HTMLSpans::tokens(line, line.size(), code)) {
            const auto* tag = std::get_if<HTMLSpans::Tag>(&token);
            if (!tag) continue;
            if (auto found = htmlEmbed(*tag)) result.push_back(*std::move(found));
        }
    }
    std::stable_sort(result.begin(), result.end(), [](const Found& a, const Found& b) {
        return a.embed.range.location < b.embed.range.location;
    });
    return result;
}

std::vector<Found> embedsOf(std::u16string_view text) {
    std::vector<Found> result;
    if (!mightEmbed(text)) return result;
    const auto frontmatter = frontmatterRange(text);
    bool fenced = false;
    for (std::size_t at = frontmatter ? frontmatter->end() : 0; at < text.size();) {
        const EditorLines::Line line = EditorLines::lineFrom(text, at);
        at = line.full.end();
        if (EditorLines::isFence(piece(text, line.full))) {
            fenced = !fenced;
            continue;
        }
        if (fenced || !mightEmbed(piece(text, line.content))) continue;
        for (Found& found : embedsOfLine(piece(text, line.content))) {
            found.embed.range.location += line.full.location;
            found.spelled.location += line.full.location;
            found.embed.lineRange = line.full;
            result.push_back(std::move(found));
        }
    }
    return result;
}

/// The characters that would end a target written at `spelled`.
std::string_view endingSigns(std::u16string_view text, const Found& found) {
    if (text[found.embed.range.location] == u'!') {
        return text[found.spelled.location - 1] == u'<' ? ")>\r\n" : ")\r\n";
    }
    const char16_t quote = text[found.spelled.location - 1];
    if (quote == u'"') return "\"\r\n";
    if (quote == u'\'') return "'\r\n";
    return " \t\r\n\f\"'<>`";
}

}  // namespace

std::vector<ImageEmbed> imageEmbeds(std::u16string_view text) {
    std::vector<ImageEmbed> result;
    for (Found& found : embedsOf(text)) result.push_back(std::move(found.embed));
    return result;
}

bool isEmbeddable(std::string_view target) {
    target = trim(target);
    if (!staysInside(target)) return false;
    // What is spelled with escapes must not lead out either.
    const auto decoded = removingPercentEncoding(target);
    if (decoded && !staysInside(*decoded)) return false;
    const std::string extension = lowercasedExtension(target);
    return std::find(attachmentExtensions.begin(), attachmentExtensions.end(), extension) !=
           attachmentExtensions.end();
}

std::optional<TextRange> spelledTarget(std::string_view target, std::string_view newTarget,
                                       std::u16string_view text) {
    for (const Found& found : embedsOf(text)) {
        if (found.embed.target != target) continue;
        if (newTarget.find_first_of(endingSigns(text, found)) != newTarget.npos) return std::nullopt;
        return found.spelled;
    }
    return std::nullopt;
}

}  // namespace vesk::MarkdownSpans
