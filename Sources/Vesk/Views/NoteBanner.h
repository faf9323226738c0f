// A quiet box above the note: what happened, in words, and what can be done about it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

class NoteBanner final : public Gtk::Revealer {
public:
    struct Contents {
        std::string heading, text;
        std::vector<std::string> actions;  ///< the first takes the primary place
        std::string icon = "dialog-information-symbolic";
        bool operator==(const Contents&) const = default;
    };

    NoteBanner();
    /// Called with the words of the button.
    std::function<void(const std::string&)> onAction;
    void present(const Contents& contents);
    void dismiss();

private:
    void takeBack();

    std::string announced_;
    std::function<void()> takeBack_;
    Gtk::Box card_, words_{Gtk::Orientation::VERTICAL}, buttons_;
    Gtk::Image icon_;
    Gtk::Label heading_, text_;
    std::vector<std::unique_ptr<Gtk::Button>> shown_;
};

}  // namespace vesk::views
