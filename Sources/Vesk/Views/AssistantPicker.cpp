#include "Vesk/Views/AssistantPicker.h"

namespace vesk::views {
namespace {

constexpr int width = 320, tallest = 460;

Gtk::Label& label(const std::string& words, std::initializer_list<const char*> classes) {
    auto* made = Gtk::make_managed<Gtk::Label>(words);
    made->set_xalign(0);
    made->set_wrap(true);
    made->set_max_width_chars(36);
    for (const auto* name : classes) made->add_css_class(name);
    return *made;
}

}  // namespace

AssistantPicker::AssistantPicker(std::shared_ptr<BrainSession> brain, std::function<void()> openSettings)
    : brain_(std::move(brain)) {
    button_.add_css_class("flat");
    summary_.add_css_class("heading");
    button_.set_tooltip_text(_("Which model answers"));
    summary_.set_ellipsize(Pango::EllipsizeMode::END);
    summary_.set_max_width_chars(18);
    auto* arrow = Gtk::make_managed<Gtk::Image>();
    arrow->set_from_icon_name("pan-down-symbolic");
    shown_.set_spacing(4);
    shown_.append(summary_);
    shown_.append(*arrow);
    button_.set_child(shown_);
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_propagate_natural_height(true);
    scroller_.set_max_content_height(tallest);
    scroller_.set_size_request(width, -1);
    list_.set_spacing(2);
    scroller_.set_child(list_);
    settings_.set_label(_("Settings…"));
    settings_.add_css_class("flat");
    settings_.set_hexpand(true);
    settings_.signal_clicked().connect([this, openSettings = std::move(openSettings)] {
        popover_.popdown();
        openSettings();
    });
    again_.set_icon_name("view-refresh-symbolic");
    again_.add_css_class("flat");
    again_.set_tooltip_text(_("Look for models again"));
    setAccessibleName(again_, _("Look for models again"));
    again_.signal_clicked().connect([this] { brain_->refreshProviders(true); });
    bar_.add_css_class("assistant-picker-bar");
    bar_.append(settings_);
    bar_.append(spinner_);
    bar_.append(again_);
    page_.append(scroller_);
    page_.append(*Gtk::make_managed<Gtk::Separator>());
    page_.append(bar_);
    popover_.add_css_class("assistant-picker");
    popover_.set_child(page_);
    popover_.signal_show().connect([this] {
        brain_->refreshProviders(false);
        fill();
    });
    button_.set_popover(popover_);
    const auto watch = [this](auto& value) {
        subscriptions_.push_back(value.subscribe([this](const auto&) { refresh(); }));
    };
    watch(brain_->options);
    watch(brain_->activeProviderID);
    watch(brain_->activeModelID);
    watch(brain_->discovering);
    refresh();
}

void AssistantPicker::refresh() {
    const auto summary = brain_->activeSummary();
    summary_.set_text(summary);
    setAccessibleName(button_, Glib::ustring::compose(_("Model: %1"), summary).c_str());
    const bool isLooking = brain_->discovering;
    spinner_.set_spinning(isLooking);
    spinner_.set_visible(isLooking);
    again_.set_visible(!isLooking);
    if (popover_.get_visible()) fill();
}

void AssistantPicker::fill() {
    while (auto* child = list_.get_first_child()) list_.remove(*child);
    for (const auto& option : brain_->options.get()) addProvider(option);
}

void AssistantPicker::addProvider(const ProviderOption& option) {
    auto& heading = label(std::string(shortDisplayName(option.providerID)), {"heading"});
    heading.set_margin_top(list_.get_first_child() ? 10 : 4);
    heading.set_margin_start(8);
    heading.set_margin_end(8);
    list_.append(heading);
    if (leavesDevice(option.providerID) && option.isReady) {
        auto& leaves =
            label(_("Your question and the notes it needs go to this service."), {"caption", "dim-label"});
        leaves.set_margin_start(8);
        list_.append(leaves);
    }
    if (option.blockedReason) {
        auto& reason = label(*option.blockedReason, {"caption", "dim-label"});
        reason.set_margin_start(8);
        reason.set_margin_end(8);
        reason.set_margin_bottom(4);
        list_.append(reason);
        return;
    }
    for (const auto& model : option.models) {
        const bool isActive =
            brain_->activeProviderID.get() == option.providerID && brain_->activeModelID.get() == model.id;
        auto* row = Gtk::make_managed<Gtk::Button>();
        row->add_css_class("flat");
        auto* content = Gtk::make_managed<Gtk::Box>();
        content->set_spacing(8);
        auto* words = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
        words->set_hexpand(true);
        words->append(label(model.displayName, {"assistant-model-name"}));
        words->append(label(model.priceLabel(), {"caption", "dim-label"}));
        if (model.note && *model.note != model.priceLabel())
            words->append(label(*model.note, {"caption", "dim-label"}));
        auto* check = Gtk::make_managed<Gtk::Image>();
        check->set_from_icon_name("object-select-symbolic");
        check->set_opacity(isActive ? 1 : 0);
        content->append(*words);
        content->append(*check);
        row->set_child(*content);
        setAccessibleName(*row, Glib::ustring::compose(isActive ? _("%1, %2, chosen") : "%1, %2",
                                                       model.displayName, model.priceLabel())
                                    .c_str());
        row->signal_clicked().connect([this, choice = Choice{option.providerID, model.id}] {
            // The list is made anew by the choice, and with it this button.
            const auto chosen = choice;
            popover_.popdown();
            brain_->choose(chosen.provider, chosen.model);
        });
        list_.append(*row);
    }
}

}  // namespace vesk::views
