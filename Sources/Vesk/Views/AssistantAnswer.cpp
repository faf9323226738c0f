#include "Vesk/Views/AssistantAnswer.h"

namespace vesk::views {
namespace {

constexpr int indentWidth = 16;
constexpr int narrowestText = 18;
constexpr int widestText = 30;  // the pane's width is the person's, not its text's
constexpr std::string_view notePrefix = "note:", addressPrefix = "to:";

std::string escaped(std::string_view text) {
    char* safe = g_markup_escape_text(text.data(), static_cast<gssize>(text.size()));
    std::string copy = safe;
    g_free(safe);
    return copy;
}

std::string markup(const AnswerLine& line) {
    std::string out;
    std::size_t at = 0;
    const std::string_view text = line.text;
    for (const auto& run : line.runs) {
        out += escaped(text.substr(at, run.range.location - at));
        at = run.range.end();
        std::string close;
        const auto wrap = [&](const char* open, const char* end) {
            out += open;
            close.insert(0, end);
        };
        if (run.link) {
            const bool isNote = run.link->kind == AnswerLink::Kind::note;
            out += "<a href=\"" +
                   escaped(std::string(isNote ? notePrefix : addressPrefix) + run.link->target) + "\">";
            close = "</a>";
        }
        if (run.bold) wrap("<b>", "</b>");
        if (run.italic) wrap("<i>", "</i>");
        if (run.struck) wrap("<s>", "</s>");
        if (run.highlighted) wrap("<span background=\"#f8e45c\" background_alpha=\"45%\">", "</span>");
        if (run.code) wrap("<span font_family=\"monospace\" size=\"92%\">", "</span>");
        out += escaped(text.substr(run.range.location, run.range.length)) + close;
    }
    return out + escaped(text.substr(at));
}

}  // namespace

AssistantAnswer::AssistantAnswer() : Gtk::Box(Gtk::Orientation::VERTICAL) {
    add_css_class("assistant-answer");
}

void AssistantAnswer::show(std::string_view text) {
    const auto first = text_.update(text);
    const auto& blocks = text_.blocks();
    for (std::size_t index = first; index < blocks.size(); ++index) {
        const auto& block = blocks[index];
        if (index < shown_.size() && shown_[index].block == block) continue;
        if (index < shown_.size()) {
            auto& shown = shown_[index];
            const auto frame = [](AnswerBlock other) {
                other.line = {};
                return other;
            };
            if (shown.label && frame(shown.block) == frame(block)) {
                fill(*shown.label, block.line);
                shown.block = block;
                continue;
            }
            for (auto rest = index; rest < shown_.size(); ++rest) remove(*shown_[rest].widget);
            shown_.resize(index);
        }
        shown_.push_back({.block = block});
        shown_.back().widget = make(block);
        append(*shown_.back().widget);
    }
    for (auto rest = blocks.size(); rest < shown_.size(); ++rest) remove(*shown_[rest].widget);
    shown_.resize(blocks.size());
}

void AssistantAnswer::fill(Gtk::Label& label, const AnswerLine& line) {
    line.runs.empty() ? label.set_text(line.text) : label.set_markup(markup(line));
}

Gtk::Label* AssistantAnswer::makeLabel(const AnswerLine& line) {
    auto* label = Gtk::make_managed<Gtk::Label>();
    label->set_wrap(true);
    label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    label->set_max_width_chars(widestText);
    // Without a least width the toolkit lays each growing paragraph out a character a line, to learn it.
    label->set_width_chars(narrowestText);
    label->set_xalign(0);
    label->set_hexpand(true);
    label->set_selectable(true);
    fill(*label, line);
    label->signal_activate_link().connect(
        [this](const Glib::ustring& href) {
            const std::string_view target = href.raw();
            const bool isNote = target.starts_with(notePrefix);
            const AnswerLink link{isNote ? AnswerLink::Kind::note : AnswerLink::Kind::address,
                                  std::string(target.substr((isNote ? notePrefix : addressPrefix).size()))};
            if (onLink) onLink(link);
            return true;
        },
        false);
    return label;
}

Gtk::Widget* AssistantAnswer::make(const AnswerBlock& block) {
    using Kind = AnswerBlock::Kind;
    if (block.kind == Kind::table) return makeTable(block);
    if (block.kind == Kind::divider) return Gtk::make_managed<Gtk::Separator>();
    auto* label = shown_.back().label = makeLabel(block.line);
    switch (block.kind) {
        case Kind::heading:
            label->add_css_class(block.level <= 2 ? "title-4" : "heading");
            break;
        case Kind::quote:
            label->add_css_class("answer-quote");
            break;
        case Kind::code:
            label->add_css_class("answer-code");
            if (block.continues) label->add_css_class("continues");
            break;
        case Kind::item: {
            auto* row = Gtk::make_managed<Gtk::Box>();
            row->set_spacing(8);
            row->set_margin_start(indentWidth * block.level);
            row->add_css_class("answer-item");
            auto* marker =
                Gtk::make_managed<Gtk::Label>(block.done ? (*block.done ? "☑" : "☐") : block.marker);
            marker->add_css_class("dim-label");
            marker->set_valign(Gtk::Align::START);
            marker->set_width_chars(1);
            row->append(*marker);
            row->append(*label);
            return row;
        }
        case Kind::paragraph:
        case Kind::table:
        case Kind::divider:
            break;
    }
    return label;
}

Gtk::Widget* AssistantAnswer::makeTable(const AnswerBlock& block) {
    auto* grid = Gtk::make_managed<Gtk::Grid>();
    grid->add_css_class("answer-table");
    for (std::size_t row = 0; row < block.rows.size(); ++row) {
        for (std::size_t column = 0; column < block.rows[row].size(); ++column) {
            auto* cell = makeLabel(block.rows[row][column]);
            const auto longest = static_cast<std::size_t>(widestText);
            const auto length = g_utf8_strlen(block.rows[row][column].text.c_str(), -1);
            cell->set_width_chars(static_cast<int>(std::min(static_cast<std::size_t>(length), longest)));
            cell->set_valign(Gtk::Align::START);
            if (row == 0) cell->add_css_class("heading");
            grid->attach(*cell, static_cast<int>(column), static_cast<int>(row));
        }
    }
    auto* scroller = Gtk::make_managed<Gtk::ScrolledWindow>();
    scroller->set_policy(Gtk::PolicyType::AUTOMATIC, Gtk::PolicyType::NEVER);
    scroller->set_propagate_natural_height(true);
    scroller->set_child(*grid);
    return scroller;
}

}  // namespace vesk::views
