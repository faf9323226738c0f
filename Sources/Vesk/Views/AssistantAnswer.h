// A reply in the assistant's panel: one widget for each block, so that what comes in lays out the last block
// anew and no other.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Vesk/AI/AnswerText.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class AssistantAnswer final : public Gtk::Box {
public:
    AssistantAnswer();
    /// The whole text as it is now.
    void show(std::string_view text);
    std::function<void(const AnswerLink&)> onLink;

private:
    Gtk::Widget* make(const AnswerBlock& block);
    Gtk::Label* makeLabel(const AnswerLine& line);
    Gtk::Widget* makeTable(const AnswerBlock& block);
    void fill(Gtk::Label& label, const AnswerLine& line);

    struct Shown {
        AnswerBlock block;
        Gtk::Widget* widget = nullptr;
        Gtk::Label* label = nullptr;  ///< that shows its line; none of a table or divider
    };
    AnswerText text_;
    std::vector<Shown> shown_;
};

}  // namespace vesk::views
