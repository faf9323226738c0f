#include "Vesk/Reminders/ReminderCenter.h"

#include "Vesk/Reminders/ReminderAnswer.h"
#include "VeskCore/Support/Localised.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

NoteReminder::CalendarFields fields(const NotificationTrigger& trigger) {
    return {.year = trigger.year,
            .month = trigger.month,
            .day = trigger.day,
            .hour = trigger.hour,
            .minute = trigger.minute,
            .weekday = trigger.weekday};
}

std::string summaryOf(const Vault& vault, const std::string& path) {
    try {
        if (const auto text = CoordinatedIO::read(vault.absolutePath(path)))
            return NoteReminder::summary(*text, ReminderCenter::summaryLength);
    } catch (const Error&) {  // it rings without
    }
    return {};
}

/// One apply, on a worker. What the centre refuses is still missing at the next one.
void apply(NotificationService& service, const std::vector<NoteReminder::Reminder>& reminders,
           const Vault& vault, TimePoint now, const Calendar& calendar) {
    std::vector<NoteReminder::PendingRequest> pending;
    for (const auto& waiting : service.pendingRequests()) {
        pending.push_back({.identifier = waiting.identifier,
                           .components = fields(waiting.trigger),
                           .repeats = waiting.trigger.repeats,
                           .title = waiting.title});
    }
    const auto plan = NoteReminder::schedulePlan(reminders, pending, now, ReminderCenter::cap, calendar);
    if (!plan.remove.empty()) service.removePending(plan.remove);
    // What nobody could show in time rings late, but not for a note that has let go of it.
    const auto late = NoteReminder::withoutOwner(service.overdueIdentifiers(), reminders);
    if (!late.empty()) service.removePending(late);
    if (!plan.clearDelivered.empty()) service.removeDelivered(plan.clearDelivered);
    for (const auto& scheduled : plan.add) {
        try {
            service.add(
                ReminderCenter::request(scheduled.identifier, vault.root(), scheduled.path, scheduled.title,
                                        summaryOf(vault, scheduled.path),
                                        ReminderCenter::trigger(scheduled.components, scheduled.repeats)));
        } catch (const std::exception&) {  // the next sync finds it missing
        }
    }
}

}  // namespace

NotificationTrigger ReminderCenter::trigger(const NoteReminder::CalendarFields& fields, bool repeats) {
    return {.year = fields.year,
            .month = fields.month,
            .day = fields.day,
            .hour = fields.hour,
            .minute = fields.minute,
            .weekday = fields.weekday,
            .repeats = repeats};
}

NotificationRequest ReminderCenter::request(std::string identifier, const FilePath& root,
                                            const std::string& path, std::string title,
                                            const std::string& body, NotificationTrigger when) {
    return {.identifier = std::move(identifier),
            .title = std::move(title),
            .subtitle = "Vesk",
            .body = body.empty() ? localised("Open the note") : body,
            .threadIdentifier = thread,
            .categoryIdentifier = category,
            .userInfo = {{pathKey, path}, {vaultKey, root.string()}},
            .trigger = std::move(when)};
}

std::vector<NotificationCategory> ReminderCenter::categories() {
    return {{.identifier = category,
             .actions = {{.identifier = snoozeAction, .title = localised("Snooze 1 hour")},
                         {.identifier = doneAction, .title = localised("Done")}}}};
}

std::optional<ReminderCenter::Answer> ReminderCenter::answer(const NotificationResponse& response) {
    const auto path = response.userInfo.find(pathKey);
    if (path == response.userInfo.end() || path->second.empty()) return {};
    const auto vault = response.userInfo.find(vaultKey);
    Answer answer{.path = path->second,
                  .vault = vault == response.userInfo.end() ? std::string() : vault->second,
                  .kind = {}};
    if (!response.action) return answer;
    if (*response.action == snoozeAction) answer.kind = ReminderAction::Kind::snooze;
    if (*response.action == doneAction) answer.kind = ReminderAction::Kind::done;
    return answer.kind ? std::optional(answer) : std::nullopt;
}

struct ReminderCenter::Life {
    ReminderCenter* center;
};

ReminderCenter::ReminderCenter(NotificationService& service, MainQueue& mainQueue, Background& background,
                               const Clock& clock, std::function<Calendar()> calendar)
    : service_(service),
      mainQueue_(mainQueue),
      background_(background),
      clock_(clock),
      calendar_(std::move(calendar)),
      life_(std::make_shared<Life>(Life{this})) {
    service_.setOnResponse(
        [&queue = mainQueue_, weak = std::weak_ptr<Life>(life_)](const NotificationResponse& response) {
            queue.post([weak, response] {
                if (const auto life = weak.lock()) life->center->heard(response);
            });
        });
}

ReminderCenter::~ReminderCenter() {
    service_.setOnResponse({});
}

void ReminderCenter::requestPermissionIfNeeded() {
    if (std::exchange(permissionAsked_, true)) return;
    background_.run(Priority::utility, [&service = service_](const std::stop_token&) {
        try {
            if (service.permission() == NotificationPermission::notDetermined) service.requestPermission();
        } catch (const std::exception&) {  // reminders stay in the notes all the same
        }
    });
}

void ReminderCenter::registerCategory() {
    background_.run(Priority::utility, [&service = service_](const std::stop_token&) {
        try {
            service.setCategories(categories());
        } catch (const std::exception&) {  // no centre, no buttons
        }
    });
}

void ReminderCenter::sync(std::vector<NoteReminder::Reminder> reminders, const Vault& vault) {
    lastSynced_.emplace(std::move(reminders), vault);
    if (applying_) {
        pendingSync_ = true;
    } else {
        applyLast();
    }
}

void ReminderCenter::applyLast() {
    applying_ = true;
    background_.run(Priority::utility,
                    [&service = service_, &queue = mainQueue_, wanted = *lastSynced_, now = clock_.now(),
                     calendar = calendar_(), weak = std::weak_ptr<Life>(life_)](const std::stop_token&) {
                        try {
                            apply(service, wanted.first, wanted.second, now, calendar);
                        } catch (const std::exception&) {  // the next sync tries again
                        }
                        queue.post([weak] {
                            const auto life = weak.lock();
                            if (!life) return;
                            auto& center = *life->center;
                            center.applying_ = false;
                            if (std::exchange(center.pendingSync_, false)) center.applyLast();
                        });
                    });
}

void ReminderCenter::snooze(const std::string& path, TimePoint until, const std::string& title,
                            const std::string& body) {
    const auto root = lastSynced_ ? lastSynced_->second.root() : FilePath();
    auto snoozed = request(NoteReminder::snoozeIdentifier(path), root, path, title, body,
                           trigger(NoteReminder::calendarFields(until, calendar_()), false));
    background_.run(Priority::userInitiated,
                    [&service = service_, snoozed = std::move(snoozed)](const std::stop_token&) {
                        try {
                            service.add(snoozed);
                        } catch (const std::exception&) {  // nothing rings, and the note is as it was
                        }
                    });
}

void ReminderCenter::cancelSnooze(const std::string& path) {
    background_.run(
        Priority::userInitiated,
        [&service = service_, identifier = NoteReminder::snoozeIdentifier(path)](const std::stop_token&) {
            try {
                service.removePending({identifier});
            } catch (const std::exception&) {  // the next sync removes it
            }
        });
}

void ReminderCenter::carryOut(const ReminderAction& action, TimePoint tappedAt) {
    background_.run(Priority::userInitiated, [&service = service_, action, tappedAt, now = clock_.now(),
                                              calendar = calendar_()](const std::stop_token&) {
        try {
            ReminderAnswer::carryOut(action, tappedAt, now, calendar, service);
        } catch (const std::exception&) {  // the note is as it was, and its reminder is overdue in its list
        }
    });
}

void ReminderCenter::heard(const NotificationResponse& response) {
    const auto chosen = answer(response);
    if (!chosen) return;
    if (!chosen->kind) {
        if (onOpen) onOpen(chosen->path, chosen->vault);
    } else if (onAction) {
        onAction({.path = chosen->path, .kind = *chosen->kind, .vault = chosen->vault},
                 response.tappedAt.value_or(clock_.now()));
    }
}

}  // namespace vesk
