#include "Vesk/Views/AssistantPane.h"

#include "VeskCore/Support/Localised.h"

namespace vesk::views {
namespace {

constexpr gint64 betweenRefreshes = 30'000;  // microseconds, while a reply comes in
constexpr double nearEnd = 24;               // pixels
constexpr int widestText = 30;               // the pane's width is the person's, not its text's

void asNotice(Gtk::Label& label) {
    label.add_css_class("caption");
    label.add_css_class("dim-label");
    label.set_wrap(true);
    label.set_max_width_chars(widestText);
    label.set_xalign(0);
    label.set_visible(false);
}

}  // namespace

AssistantPane::AssistantPane(std::shared_ptr<BrainSession> brain, AssistantPaneActions actions)
    : Gtk::Box(Gtk::Orientation::VERTICAL),
      brain_(std::move(brain)),
      actions_(std::move(actions)),
      picker_(brain_, [this] { actions_.openSettings(); }) {
    add_css_class("assistant");
    turnActions_ = {
        .cite = [this](const CitedNote& note) { actions_.cite(note); },
        .follow = [this](const AnswerLink& link) { actions_.follow(link); },
        .answerWithoutNotes = [this] { brain_->askWithoutContext(); },
        .review = [this] { brain_->pendingEdit.get() ? actions_.reviewEdit() : actions_.reviewPlan(); }};
    buildBar();
    buildConversation();
    connect();
    refresh();
}

AssistantPane::~AssistantPane() {
    following_.disconnect();
    if (tick_ != 0) gtk_widget_remove_tick_callback(gobj() ? GTK_WIDGET(gobj()) : nullptr, tick_);
}

void AssistantPane::buildBar() {
    picker_.button().set_hexpand(true);
    picker_.button().set_halign(Gtk::Align::START);
    auto menu = Gio::Menu::create(), asks = Gio::Menu::create(), files = Gio::Menu::create();
    auto group = Gio::SimpleActionGroup::create();
    for (const auto action : allQuickActions) {
        const std::string name(rawValue(action));
        asks->append(localised(title(action)), "assistant." + name);
        group->add_action(name, [this, action] { actions_.run(action); });
    }
    files->append(_("File This Note…"), "assistant.file-note");
    group->add_action("file-note", [this] { actions_.fileNote(); });
    files->append(_("Organise My Notes…"), "assistant.organise");
    group->add_action("organise", [this] { actions_.organise(); });
    menu->append_section(asks);
    menu->append_section(files);
    insert_action_group("assistant", group);
    quickActions_.set_icon_name("starred-symbolic");
    quickActions_.set_menu_model(menu);
    quickActions_.set_tooltip_text(_("Quick Actions"));
    quickActions_.add_css_class("flat");
    setAccessibleName(quickActions_, _("Quick Actions"));
    clear_.set_icon_name("document-new-symbolic");
    clear_.set_tooltip_text(_("New Conversation"));
    clear_.add_css_class("flat");
    setAccessibleName(clear_, _("New Conversation"));
    clear_.signal_clicked().connect([this] {
        brain_->cancel();
        brain_->clear();
        composer_.focusText();
    });
    bar_.add_css_class("assistant-bar");
    bar_.append(picker_.button());
    bar_.append(quickActions_);
    bar_.append(clear_);
    append(bar_);
}

void AssistantPane::buildConversation() {
    turns_.add_css_class("assistant-turns");
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_child(turns_);
    setAccessibleName(scroller_, _("Conversation"));
    auto* empty = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    empty->set_spacing(10);
    empty->set_valign(Gtk::Align::CENTER);
    empty->set_margin(18);
    auto* icon = Gtk::make_managed<Gtk::Image>();
    icon->set_from_icon_name("user-available-symbolic");
    icon->set_pixel_size(56);
    icon->add_css_class("dim-label");
    empty->append(*icon);
    const auto words = [&](std::string_view text, const char* style) {
        auto* label = Gtk::make_managed<Gtk::Label>(std::string(text));
        label->set_wrap(true);
        label->set_max_width_chars(widestText);
        label->set_justify(Gtk::Justification::CENTER);
        label->add_css_class(style);
        empty->append(*label);
    };
    words(localised(BrainSession::emptyPanelTitle), "title-3");
    words(localised(BrainSession::emptyPanelText), "dim-label");
    stack_.add(scroller_, "turns");
    stack_.add(*empty, "empty");
    stack_.set_vexpand(true);
    append(stack_);
    asNotice(coverage_);
    asNotice(indexing_);
    asNotice(report_);
    indexing_.set_text(localised(BrainSession::indexingNotice));
    unready_.set_text(localised(BrainSession::noProviderConfigured));
    unready_.set_wrap(true);
    unready_.set_max_width_chars(widestText);
    unready_.set_xalign(0);
    settings_.set_halign(Gtk::Align::START);
    settings_.signal_clicked().connect([this] { actions_.openSettings(); });
    setUp_.add_css_class("assistant-failure");
    setUp_.set_margin(10);
    setUp_.append(unready_);
    setUp_.append(settings_);
    append(setUp_);
    notices_.add_css_class("assistant-notices");
    notices_.append(report_);
    notices_.append(coverage_);
    notices_.append(indexing_);
    append(notices_);
    append(composer_);
    const auto place = scroller_.get_vadjustment();
    place->signal_value_changed().connect([this, place] {
        if (isScrolling_) return;
        staysAtEnd_ = place->get_value() + place->get_page_size() >= place->get_upper() - nearEnd;
    });
    // The height changes while the reply is laid out, after it was put into its labels.
    place->signal_changed().connect([this] {
        if (following_.connected()) return;
        following_ = Glib::signal_idle().connect(
            [this] {
                followEnd();
                return false;
            },
            Glib::PRIORITY_HIGH_IDLE);
    });
}

void AssistantPane::connect() {
    composer_.onSend = [this](const std::string& draft) { send(draft); };
    composer_.onStop = [this] { stop(); };
    composer_.onScope = [this](AIScope scope) { brain_->scope.setIfChanged(scope); };
    const auto watch = [this](auto& value) {
        subscriptions_.push_back(value.subscribe([this](const auto&) { queueRefresh(); }));
    };
    watch(brain_->turns);
    watch(brain_->isStreaming);
    watch(brain_->isOrganising);
    watch(brain_->scope);
    watch(brain_->lastCoverage);
    watch(brain_->pendingPlan);
    watch(brain_->pendingEdit);
    watch(brain_->lastPlanReport);
    watch(brain_->options);
    watch(brain_->activeProviderID);
    watch(brain_->activeModelID);
    watch(brain_->discovering);
}

void AssistantPane::stop() {
    brain_->isOrganising && !brain_->organiseStopRequested ? brain_->stopOrganising() : brain_->cancel();
}

void AssistantPane::send(const std::string& draft) {
    const auto before = brain_->scope.get();
    const auto words = brain_->submitted(draft);
    if (!words) {
        // A command by itself is done with; what can't be sent yet stays to be sent.
        if (brain_->canAsk() && brain_->scope.get() != before) composer_.setDraft("");
        return;
    }
    composer_.setDraft("");
    staysAtEnd_ = true;
    brain_->ask(*words, actions_.subject());
}

bool AssistantPane::awaitsSheet() const {
    auto* root = gtk_widget_get_root(const_cast<GtkWidget*>(GTK_WIDGET(gobj())));
    auto* focus = root ? gtk_root_get_focus(root) : nullptr;
    return focus && gtk_widget_is_ancestor(focus, GTK_WIDGET(const_cast<GtkBox*>(gobj()))) &&
           composer_.draft().empty();
}

void AssistantPane::setIndexing(bool indexing) {
    isIndexing_ = indexing;
    queueRefresh();
}

void AssistantPane::queueRefresh() {
    if (tick_ != 0) return;
    tick_ = gtk_widget_add_tick_callback(
        GTK_WIDGET(gobj()),
        [](GtkWidget*, GdkFrameClock* clock, gpointer data) -> gboolean {
            auto* self = static_cast<AssistantPane*>(data);
            // Laying out a paragraph that grows costs half a frame: every other one is left free of it.
            const auto now = gdk_frame_clock_get_frame_time(clock);
            if (self->brain_->isStreaming && now - self->refreshed_ < betweenRefreshes)
                return G_SOURCE_CONTINUE;
            self->refreshed_ = now;
            self->tick_ = 0;
            self->refresh();
            return G_SOURCE_REMOVE;
        },
        this, nullptr);
}

void AssistantPane::refresh() {
    refreshTurns();
    refreshNotices();
    composer_.setScope(brain_->scope);
    composer_.setStreaming(brain_->isStreaming || brain_->isOrganising);
    stack_.set_visible_child(brain_->turns->empty() ? "empty" : "turns");
    clear_.set_sensitive(!brain_->turns->empty());
}

void AssistantPane::refreshTurns() {
    const auto& turns = brain_->turns.get();
    std::size_t same = 0;
    while (same < shown_.size() && same < turns.size() && shown_[same]->id() == turns[same].id) ++same;
    for (auto rest = same; rest < shown_.size(); ++rest) turns_.remove(*shown_[rest]);
    shown_.resize(same);
    const bool isNew = same < turns.size();
    for (auto next = same; next < turns.size(); ++next) {
        auto* turn = Gtk::make_managed<AssistantTurn>(turns[next], turnActions_);
        turns_.append(*turn);
        shown_.push_back(turn);
    }
    const bool waits = brain_->pendingEdit.get() || !brain_->pendingPlan->empty();
    // Of those before the last two nothing changes but what they once offered.
    for (std::size_t index = 0; index < shown_.size(); ++index) {
        const bool isLast = index + 1 == shown_.size();
        if (isNew || index + 2 >= shown_.size()) shown_[index]->update(turns[index], waits, isLast);
    }
}

void AssistantPane::refreshNotices() {
    const auto show = [](Gtk::Label& label, const std::optional<std::string>& words) {
        label.set_visible(words && !words->empty());
        if (words) label.set_text(*words);
    };
    show(coverage_, brain_->lastCoverage);
    show(report_, brain_->lastPlanReport);
    setUp_.set_visible(!brain_->canAsk() && !brain_->discovering);
    indexing_.set_visible(isIndexing_);
    notices_.set_visible(coverage_.get_visible() || report_.get_visible() || isIndexing_);
}

void AssistantPane::followEnd() {
    if (!staysAtEnd_) return;
    const auto place = scroller_.get_vadjustment();
    isScrolling_ = true;
    place->set_value(place->get_upper() - place->get_page_size());
    isScrolling_ = false;
}

}  // namespace vesk::views
