// `vesk notify-service`: rings the reminders while no window is open.
#include <condition_variable>
#include <mutex>
#include <string>

#include "Vesk/Reminders/ReminderAnswer.h"
#include "VeskCommand/CommandSupport.h"
#include "VeskCommand/Commands.h"

namespace vesk::command {
namespace {

/// On the service's worker. What is thrown keeps the answer for the window that opens next.
void carryOut(const CommandContext& context, NotificationService& service,
              const NotificationResponse& response) {
    const auto chosen = ReminderCenter::answer(response);
    if (!chosen) return;
    if (!chosen->kind) {
        if (chosen->vault.empty()) return context.openWindow({});
        // The vault first: a note of one that isn't open would be taken for a folder's of its own.
        return context.openWindow({chosen->vault, FilePath(chosen->vault) / chosen->path});
    }
    if (chosen->vault.empty()) throw CommandError("The note's vault isn't known.");
    const auto now = context.clock.now();
    ReminderAnswer::carryOut({.path = chosen->path, .kind = *chosen->kind, .vault = chosen->vault},
                             response.tappedAt.value_or(now), now, Calendar::system(), service);
}

void serve(const CommandContext& context) {
    std::mutex lock;
    std::condition_variable_any ended;
    std::string end;  // why it is over; guarded by the lock
    const auto service = context.notificationService([&](const std::string& words, bool isOver) {
        if (!isOver) return context.remark(words);
        {
            const std::lock_guard guard(lock);
            end = words;
        }
        ended.notify_one();
    });
    if (!service) return context.remark("The notification service runs already.");
    service->setCategories(ReminderCenter::categories());
    service->setOnResponse(
        [&](const NotificationResponse& response) { carryOut(context, *service, response); });
    std::unique_lock guard(lock);
    ended.wait(guard, context.stop, [&] { return !end.empty(); });
    if (!end.empty()) throw CommandError(end);
}

}  // namespace

void addNotifyCommand(CLI::App& program, CommandContext& context) {
    auto* command = addCommand(program, "notify-service",
                               "Ring the notes' reminders while no window is open, until it is stopped",
                               "  vesk notify-service\n  systemctl --user enable --now vesk-notify");
    command->callback([&context] { serve(context); });
}

}  // namespace vesk::command
