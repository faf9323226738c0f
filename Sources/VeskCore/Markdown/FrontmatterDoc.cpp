#include "VeskCore/Markdown/FrontmatterDoc.h"

#include <algorithm>

#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk {
namespace {

bool isIndented(std::string_view line) {
    return line.starts_with(' ') || line.starts_with('\t');
}

bool isBlank(std::string_view line) {
    return trimHorizontal(line).empty();
}

bool isItem(std::string_view line) {
    const auto trimmed = trimHorizontal(line);
    return trimmed == "-" || trimmed.starts_with("- ");
}

std::string_view withoutCarriageReturn(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
}

/// Each LF as CR LF.
std::string withCarriageReturns(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t from = 0;
    for (auto feed = text.find('\n'); feed != std::string_view::npos; feed = text.find('\n', from)) {
        out += withoutCarriageReturn(text.substr(from, feed - from));
        out += "\r\n";
        from = feed + 1;
    }
    return out.append(text, from);
}

bool isOpeningFence(std::string_view line) {
    return trimHorizontal(withoutCarriageReturn(line)) == "---";
}

/// A line that can belong to the key above it.
bool continuesEntry(std::string_view line) {
    return isItem(line) || (isIndented(line) && !isBlank(line));
}

/// Reads one key's continuation lines: `next` is the index of the first line that may belong to it.
class EntryReader {
public:
    EntryReader(const std::vector<std::string_view>& lines, const std::vector<std::size_t>& nextFilled,
                std::size_t next)
        : lines_(lines), nextFilled_(nextFilled), next_(next) {}

    void read() {
        while (next_ < lines_.size() && take(lines_[next_])) ++next_;
    }
    std::size_t end() const { return next_; }
    bool sawItem() const { return sawItem_; }
    bool sawOther() const { return sawOther_; }
    std::vector<YAMLValue>& items() { return items_; }

private:
    bool take(std::string_view line) {
        if (isBlank(line)) {
            const std::size_t filled = nextFilled_[next_];
            if (filled == lines_.size()) return false;
            if (!isIndented(lines_[filled]) && !lines_[filled].starts_with("- ")) return false;
            if (!sawItem_ && !sawOther_) return false;
            if (!sawItem_) sawOther_ = true;
            return true;
        }
        if (isItem(line)) {
            if (sawOther_) return isIndented(line);
            sawItem_ = true;
            const auto trimmed = trimHorizontal(line);
            items_.push_back(YAMLScalar::parse(trimmed == "-" ? std::string_view() : trimmed.substr(2)));
            return true;
        }
        if (!isIndented(line)) return false;
        sawOther_ = true;
        return true;
    }

    const std::vector<std::string_view>& lines_;
    const std::vector<std::size_t>& nextFilled_;
    std::size_t next_;
    bool sawItem_ = false, sawOther_ = false;
    std::vector<YAMLValue> items_;
};

}  // namespace

FrontmatterDoc::FrontmatterDoc(std::string_view text)
    : crlf_(text.find("\r\n") != std::string_view::npos), trailingNewline_(text.ends_with('\n')) {
    std::size_t at = text.find('\n');
    if (at == std::string_view::npos || !isOpeningFence(text.substr(0, at))) {
        body_ = text;
        return;
    }
    // Only the block is cut into lines; the body may be large.
    std::vector<std::string_view> block;
    bool closed = false;
    while (at != std::string_view::npos && at + 1 < text.size()) {
        const std::size_t start = at + 1;
        at = text.find('\n', start);
        auto line = text.substr(start, at == std::string_view::npos ? at : at - start);
        // A CR that no LF follows belongs to its line.
        if (at != std::string_view::npos) line = withoutCarriageReturn(line);
        const auto trimmed = trimHorizontal(line);
        if (trimmed == "---" || trimmed == "...") {
            closed = true;
            break;
        }
        block.push_back(line);
    }
    if (!closed) {
        body_ = text;
        return;
    }
    hasFrontmatter_ = true;
    slots_ = parseSlots(block);
    if (at == std::string_view::npos) return;
    const auto rest = text.substr(at + 1);
    // Mixed line ends become the document's own.
    body_ = crlf_ ? withCarriageReturns(rest) : std::string(rest);
}

std::vector<FrontmatterDoc::Slot> FrontmatterDoc::parseSlots(const std::vector<std::string_view>& lines) {
    std::vector<std::size_t> nextFilled(lines.size());
    for (std::size_t i = lines.size(), filled = lines.size(); i-- > 0;) {
        if (!isBlank(lines[i])) filled = i;
        nextFilled[i] = filled;
    }
    std::vector<Slot> slots;
    for (std::size_t i = 0; i < lines.size();) {
        const auto line = lines[i];
        const auto trimmed = trimHorizontal(line);
        const auto colon = trimmed.empty() || trimmed.front() == '#' || isIndented(line)
                               ? std::nullopt
                               : keyColonIndex(line);
        if (!colon) {
            slots.push_back({Passthrough{std::string(line)}});
            ++i;
            continue;
        }
        const auto rest = line.substr(*colon + 1);
        EntryReader reader(lines, nextFilled, i + 1);
        reader.read();
        Entry entry{.key = std::string(trimHorizontal(line.substr(0, *colon))), .value = {}, .rawLines = {}};
        for (std::size_t k = i; k < reader.end(); ++k) entry.rawLines.emplace_back(lines[k]);
        if (reader.sawOther()) {
            entry.value = YAMLValue::raw(
                join(std::vector<std::string>(entry.rawLines.begin() + 1, entry.rawLines.end()), "\n"));
        } else if (reader.sawItem()) {
            entry.value = YAMLValue::list(std::move(reader.items()));
        } else {
            entry.value = YAMLScalar::parse(rest);
        }
        slots.push_back({std::move(entry)});
        i = reader.end();
    }
    return slots;
}

std::optional<std::size_t> FrontmatterDoc::keyColonIndex(std::string_view line) {
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == ':' && (i + 1 == line.size() || line[i + 1] == ' ' || line[i + 1] == '\t')) {
            return i;
        }
    }
    return {};
}

std::vector<std::string> FrontmatterDoc::keys() const {
    std::vector<std::string> keys;
    for (const auto& slot : slots_) {
        if (const auto* entry = std::get_if<Entry>(&slot.value)) keys.push_back(entry->key);
    }
    return keys;
}

std::map<std::string, YAMLValue> FrontmatterDoc::properties() const {
    std::map<std::string, YAMLValue> properties;
    for (const auto& slot : slots_) {
        if (const auto* entry = std::get_if<Entry>(&slot.value)) properties.emplace(entry->key, entry->value);
    }
    return properties;
}

std::optional<YAMLValue> FrontmatterDoc::operator[](std::string_view key) const {
    for (const auto& slot : slots_) {
        if (const auto* entry = std::get_if<Entry>(&slot.value); entry && entry->key == key)
            return entry->value;
    }
    return {};
}

void FrontmatterDoc::set(std::string_view key, const std::optional<YAMLValue>& value) {
    if (!value) return remove(key);
    const auto holds = [&](const Slot& slot) {
        const auto* entry = std::get_if<Entry>(&slot.value);
        return entry && entry->key == key;
    };
    const auto found = std::find_if(slots_.begin(), slots_.end(), holds);
    if (found != slots_.end()) {
        auto& entry = std::get<Entry>(found->value);
        const bool blockList =
            entry.rawLines.size() >= 2 && !std::holds_alternative<YAMLValue::Raw>(entry.value.value);
        entry.rawLines = render(key, *value, blockList);
        entry.value = *value;
        slots_.erase(std::remove_if(found + 1, slots_.end(), holds), slots_.end());
        return;
    }
    Entry entry{.key = std::string(key),
                .value = *value,
                .rawLines = render(key, *value, value->listValue() != nullptr)};
    auto place = slots_.end();
    for (auto slot = slots_.begin(); slot != slots_.end(); ++slot) {
        if (std::holds_alternative<Entry>(slot->value)) place = slot + 1;
    }
    // Stray indented lines or items below would read as part of the new entry; it goes under them.
    auto lines = entry.rawLines;
    for (auto slot = place; slot != slots_.end(); ++slot)
        lines.push_back(std::get<Passthrough>(slot->value).line);
    const auto read = parseSlots({lines.begin(), lines.end()});
    const auto* again = std::get_if<Entry>(&read.front().value);
    if (again && again->rawLines.size() > entry.rawLines.size()) {
        for (auto slot = place; slot != slots_.end(); ++slot) {
            if (continuesEntry(std::get<Passthrough>(slot->value).line)) place = slot + 1;
        }
    }
    slots_.insert(place, Slot{std::move(entry)});
    hasFrontmatter_ = true;
}

void FrontmatterDoc::remove(std::string_view key) {
    std::erase_if(slots_, [&](const Slot& slot) {
        const auto* entry = std::get_if<Entry>(&slot.value);
        return entry && entry->key == key;
    });
}

std::vector<std::string> FrontmatterDoc::render(std::string_view key, const YAMLValue& value,
                                                bool blockList) {
    const std::string name = std::string(key) + ":";
    // A list that one line would not give back is written one item a line.
    if (const auto* list = std::get_if<YAMLValue::List>(&value.value);
        list && (blockList || !YAMLScalar::emitsInline(*list))) {
        if (list->items.empty()) return {name + " []"};
        std::vector<std::string> lines{name};
        for (const auto& item : list->items) lines.push_back("  - " + YAMLScalar::emit(item));
        return lines;
    }
    if (std::holds_alternative<YAMLValue::Null>(value.value)) return {name};
    // Lines of their own stay so: behind the key a single indented one would read as a scalar.
    if (const auto* raw = std::get_if<YAMLValue::Raw>(&value.value);
        raw && (raw->text.find('\n') != std::string::npos || isIndented(raw->text))) {
        std::vector<std::string> lines{name};
        for (auto line : split(raw->text, '\n')) lines.emplace_back(line);
        return lines;
    }
    return {name + " " + YAMLScalar::emit(value)};
}

std::string FrontmatterDoc::serialized() const {
    if (!hasFrontmatter_ || slots_.empty()) return body_;
    const auto end = lineEnding();
    std::string text = "---";
    const auto add = [&](std::string_view line) {
        text += end;
        text += line;
    };
    for (const auto& slot : slots_) {
        match(
            slot,
            [&](const Entry& entry) {
                for (const auto& line : entry.rawLines) add(line);
            },
            [&](const Passthrough& it) { add(it.line); });
    }
    add("---");
    if (!body_.empty()) {
        text += end;
        text += body_;
    } else if (trailingNewline_) {
        text += end;
    }
    return text;
}

}  // namespace vesk
