// The one place that talks to the notification centre: turns the reminders found in the index into requests,
// and carries a press on a notification back. What is decided is decided by NoteReminder::schedulePlan.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VeskCore/Platform/NotificationService.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Executors.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk {

struct ReminderAction {
    using Kind = NoteReminder::ActionKind;
    std::string path;
    Kind kind = Kind::done;
    std::string vault = {};  ///< root of the note's vault; empty for the one that is open
    bool operator==(const ReminderAction&) const = default;
};

/// Main thread. Borrows its seams.
class ReminderCenter {
public:
    static constexpr const char* category = "vesk.reminder";
    static constexpr const char* thread = "vesk.reminders";
    static constexpr const char* snoozeAction = "vesk.snooze";
    static constexpr const char* doneAction = "vesk.done";
    static constexpr const char* pathKey = "path";
    static constexpr const char* vaultKey = "vault";  ///< root: an answer may come after another was opened
    static constexpr std::size_t cap = 60;
    static constexpr std::size_t summaryLength = 120;

    /// `calendar` is asked anew each time: the device may travel.
    ReminderCenter(NotificationService& service, MainQueue& mainQueue, Background& background,
                   const Clock& clock, std::function<Calendar()> calendar);
    ~ReminderCenter();
    ReminderCenter(const ReminderCenter&) = delete;
    ReminderCenter& operator=(const ReminderCenter&) = delete;

    /// A request for a note of the vault at `root`; no body says to open the note.
    static NotificationRequest request(std::string identifier, const FilePath& root, const std::string& path,
                                       std::string title, const std::string& body, NotificationTrigger when);
    static std::vector<NotificationCategory> categories();
    static NotificationTrigger trigger(const NoteReminder::CalendarFields& fields, bool repeats);
    struct Answer {
        std::string path, vault;
        std::optional<ReminderAction::Kind> kind;  ///< none to open the note
    };
    /// What was chosen at a notification; none for one that isn't a reminder's.
    static std::optional<Answer> answer(const NotificationResponse& response);

    /// What the person chose at a notification: to open a note, or to act on its reminder. The vault is as in
    /// ReminderAction.
    std::function<void(const std::string& path, const std::string& vault)> onOpen;
    std::function<void(const ReminderAction& action, TimePoint tappedAt)> onAction;

    /// Once a launch.
    void requestPermissionIfNeeded();
    void registerCategory();
    /// What is wanted from now on. While one plan is applied only the latest waits.
    void sync(std::vector<NoteReminder::Reminder> reminders, const Vault& vault);
    void snooze(const std::string& path, TimePoint until, const std::string& title, const std::string& body);
    void cancelSnooze(const std::string& path);
    /// An answer for a note whose vault isn't open.
    void carryOut(const ReminderAction& action, TimePoint tappedAt);

private:
    struct Life;
    void applyLast();
    void heard(const NotificationResponse& response);

    NotificationService& service_;
    MainQueue& mainQueue_;
    Background& background_;
    const Clock& clock_;
    const std::function<Calendar()> calendar_;
    bool permissionAsked_ = false;
    bool applying_ = false, pendingSync_ = false;
    std::optional<std::pair<std::vector<NoteReminder::Reminder>, Vault>> lastSynced_;
    std::shared_ptr<Life> life_;  ///< what posts back looks here whether the centre still is
};

}  // namespace vesk
