#include "VeskLinux/Notifications/PendingNotifications.h"

#include <algorithm>
#include <set>

#include "VeskCore/Support/Json.h"
#include "VeskLinux/KeptFile.h"
#include "VeskLinux/Notifications/CalendarTrigger.h"

namespace vesk {

using namespace linuxfiles;

namespace {

constexpr std::string_view category = "notifications";
constexpr std::chrono::hours clockSetBack{1};
/// What was shown and never closed (a server that ended) is forgotten from the oldest on.
constexpr std::size_t mostShown = 200;

struct Field {
    const char* name;
    std::optional<int> NotificationTrigger::*value;
};
constexpr Field fields[] = {
    {"year", &NotificationTrigger::year},     {"month", &NotificationTrigger::month},
    {"day", &NotificationTrigger::day},       {"hour", &NotificationTrigger::hour},
    {"minute", &NotificationTrigger::minute}, {"weekday", &NotificationTrigger::weekday}};

Json toJson(const std::map<std::string, std::string>& texts) {
    Json json = Json::object();
    for (const auto& [key, value] : texts) json.set(key, value);
    return json;
}

Json toJson(const NotificationTrigger& trigger) {
    Json json = Json::object({{"repeats", trigger.repeats}});
    for (const auto& field : fields)
        if (const auto& value = trigger.*field.value) json.set(field.name, *value);
    return json;
}

Json toJson(const WaitingNotification& waiting) {
    const auto& request = waiting.request;
    return Json::object({{"identifier", request.identifier},
                         {"title", request.title},
                         {"subtitle", request.subtitle},
                         {"body", request.body},
                         {"thread", request.threadIdentifier},
                         {"category", request.categoryIdentifier},
                         {"userInfo", toJson(request.userInfo)},
                         {"trigger", toJson(request.trigger)},
                         {"armed", secondsSince1970(waiting.armed)}});  // seconds since 1970
}

Json toJson(const ShownNotification& shown) {
    return Json::object({{"identifier", shown.identifier},
                         {"number", static_cast<long long>(shown.number)},
                         {"server", shown.server},
                         {"userInfo", toJson(shown.userInfo)}});
}

Json toJson(const NotificationCategory& kind) {
    Json::Array actions;
    for (const auto& action : kind.actions)
        actions.push_back(Json::object({{"identifier", action.identifier}, {"title", action.title}}));
    return Json::object({{"identifier", kind.identifier}, {"actions", std::move(actions)}});
}

Json toJson(const NotificationResponse& response) {
    Json json =
        Json::object({{"identifier", response.requestIdentifier}, {"userInfo", toJson(response.userInfo)}});
    if (response.action) json.set("action", *response.action);
    if (response.tappedAt) json.set("tappedAt", secondsSince1970(*response.tappedAt));  // seconds since 1970
    return json;
}

template <class T>
Json listJson(const std::vector<T>& values) {
    Json::Array list;
    for (const auto& value : values) list.push_back(toJson(value));
    return list;
}

std::map<std::string, std::string> textsIn(const Json& json, std::string_view key) {
    std::map<std::string, std::string> texts;
    const auto* found = json.find(key);
    const auto* members = found ? found->asObject() : nullptr;
    if (!members) return texts;
    for (const auto& member : *members)
        if (const auto* text = member.second.asString()) texts[member.first] = *text;
    return texts;
}

std::optional<NotificationTrigger> triggerIn(const Json& json) {
    const auto* found = json.find("trigger");
    if (!found || !found->asObject()) return {};
    NotificationTrigger trigger{.repeats = found->boolean("repeats").value_or(false)};
    for (const auto& field : fields) {
        const auto value = found->integer(field.name);
        if (!value) continue;
        if (*value < 0 || *value > 9999) return {};
        trigger.*field.value = static_cast<int>(*value);
    }
    return isSensible(trigger) ? std::optional(trigger) : std::nullopt;
}

std::optional<TimePoint> timeIn(const Json& json, std::string_view key) {
    constexpr double farthest = 253402300800.0;  // the year 10000
    const auto seconds = json.number(key);
    if (!seconds || !(*seconds > -farthest && *seconds < farthest)) return {};
    return timeFromSecondsSince1970(*seconds);
}

void readEntry(const Json& json, std::vector<WaitingNotification>& into) {
    const auto identifier = json.string("identifier");
    const auto trigger = triggerIn(json);
    const auto armed = timeIn(json, "armed");
    if (!identifier || !trigger || !armed) return;
    into.push_back({.request = {.identifier = *identifier,
                                .title = json.string("title").value_or(""),
                                .subtitle = json.string("subtitle").value_or(""),
                                .body = json.string("body").value_or(""),
                                .threadIdentifier = json.string("thread").value_or(""),
                                .categoryIdentifier = json.string("category").value_or(""),
                                .userInfo = textsIn(json, "userInfo"),
                                .trigger = *trigger},
                    .armed = *armed});
}

void readEntry(const Json& json, std::vector<ShownNotification>& into) {
    const auto number = json.integer("number");
    if (!json.string("identifier") || !number || *number < 1 || *number > 0xFFFFFFFF) return;
    into.push_back({.identifier = *json.string("identifier"),
                    .number = static_cast<std::uint32_t>(*number),
                    .server = json.string("server").value_or(""),
                    .userInfo = textsIn(json, "userInfo")});
}

void readEntry(const Json& json, std::vector<NotificationCategory>& into) {
    const auto* actions = json.find("actions");
    if (!json.string("identifier") || !actions || !actions->asArray()) return;
    NotificationCategory kind{.identifier = *json.string("identifier"), .actions = {}};
    for (const auto& action : *actions->asArray())
        kind.actions.push_back({.identifier = action.string("identifier").value_or(""),
                                .title = action.string("title").value_or("")});
    into.push_back(std::move(kind));
}

void readEntry(const Json& json, std::vector<NotificationResponse>& into) {
    if (!json.string("identifier")) return;
    into.push_back({.requestIdentifier = *json.string("identifier"),
                    .action = json.string("action"),
                    .userInfo = textsIn(json, "userInfo"),
                    .tappedAt = timeIn(json, "tappedAt")});
}

template <class T>
void readList(const Json& json, std::string_view key, std::vector<T>& into) {
    const auto* list = json.find(key);
    if (!list || !list->asArray()) return;
    for (const auto& entry : *list->asArray()) readEntry(entry, into);
}

/// Throws JsonError for a damaged file; none for a file that isn't there.
std::optional<NotificationState> stored(const FileSystem& files, const FilePath& file) {
    std::string text;
    try {
        text = files.read(file);
    } catch (const SystemError& error) {
        if (error.code == ENOENT || error.code == ENOTDIR) return {};
        throw;
    }
    const auto json = Json::parse(text);
    if (!json.asObject()) throw JsonError("The file is no object.");
    NotificationState state;
    readList(json, "waiting", state.waiting);
    readList(json, "shown", state.shown);
    readList(json, "categories", state.categories);
    readList(json, "responses", state.responses);
    return state;
}

}  // namespace

void NotificationState::add(const NotificationRequest& request, TimePoint now) {
    for (auto& known : waiting) {
        if (known.request.identifier != request.identifier) continue;
        if (known.request.trigger != request.trigger) known.armed = now;
        known.request = request;
        return;
    }
    waiting.push_back({request, now});
}

void NotificationState::remove(const std::string& identifier) {
    std::erase_if(waiting, [&](const auto& known) { return known.request.identifier == identifier; });
}

std::vector<WaitingNotification> NotificationState::due(TimePoint now, const Calendar& calendar) const {
    std::vector<std::pair<TimePoint, const WaitingNotification*>> found;
    for (const auto& known : waiting) {
        const auto date = nextDate(known.request.trigger, known.armed, calendar);
        if (date && *date <= now) found.emplace_back(*date, &known);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    std::vector<WaitingNotification> rings;
    for (const auto& entry : found) rings.push_back(*entry.second);
    return rings;
}

std::vector<NotificationRequest> NotificationState::toCome(TimePoint now, const Calendar& calendar) const {
    std::vector<NotificationRequest> requests;
    for (const auto& known : waiting) {
        const auto date = nextDate(known.request.trigger, known.armed, calendar);
        if (known.request.trigger.repeats || (date && *date > now)) requests.push_back(known.request);
    }
    return requests;
}

std::vector<std::string> NotificationState::overdue(TimePoint now, const Calendar& calendar) const {
    std::vector<std::string> identifiers;
    for (const auto& known : due(now, calendar))
        if (!known.request.trigger.repeats) identifiers.push_back(known.request.identifier);
    return identifiers;
}

std::optional<TimePoint> NotificationState::nextRing(TimePoint now, const Calendar& calendar) const {
    std::optional<TimePoint> next;
    for (const auto& known : waiting) {
        const auto date = nextDate(known.request.trigger, std::max(known.armed, now), calendar);
        if (date && (!next || *date < *next)) next = date;
    }
    return next;
}

void NotificationState::rang(const WaitingNotification& notification, const ShownNotification& onScreen,
                             TimePoint now) {
    std::erase_if(shown, [&](const auto& old) { return old.identifier == onScreen.identifier; });
    shown.push_back(onScreen);
    if (shown.size() > mostShown) shown.erase(shown.begin());
    const auto known = std::find_if(waiting.begin(), waiting.end(), [&](const WaitingNotification& entry) {
        return entry.request.identifier == notification.request.identifier &&
               entry.request.trigger == notification.request.trigger && entry.armed == notification.armed;
    });
    if (known == waiting.end()) return;
    if (known->request.trigger.repeats) {
        known->armed = now;
    } else {
        waiting.erase(known);
    }
}

bool NotificationState::followsClockBack(TimePoint now) {
    bool isBack = false;
    for (auto& known : waiting) {
        if (known.armed <= now + clockSetBack) continue;
        known.armed = now;
        isBack = true;
    }
    return isBack;
}

std::optional<NotificationResponse> NotificationState::answer(std::uint32_t number, const std::string& server,
                                                              const std::string& action, TimePoint now) {
    const auto found = std::find_if(shown.begin(), shown.end(), [&](const ShownNotification& entry) {
        return entry.number == number && entry.server == server;
    });
    if (found == shown.end()) return {};
    NotificationResponse response{.requestIdentifier = found->identifier,
                                  .action = action == "default" ? std::nullopt : std::optional(action),
                                  .userInfo = found->userInfo,
                                  .tappedAt = now};
    shown.erase(found);
    return response;
}

PendingNotifications::PendingNotifications(FilePath folder, FileSystem& files, Log& log)
    : folder_(std::move(folder)), file_(folder_ / "notifications.json"), files_(files), log_(log) {
    files_.createDirectories(folder_);
}

FilePath PendingNotifications::defaultFolder() {
    return baseDirectory("XDG_STATE_HOME", ".local/state") / "vesk";
}

NotificationState PendingNotifications::read() const {
    try {
        return stored(files_, file_).value_or(NotificationState{});
    } catch (const JsonError&) {
        return {};
    }
}

void PendingNotifications::change(const std::function<void(NotificationState&)>& body) {
    const Descriptor turn = waitForTurn(besides(file_, ".lock"));
    std::optional<NotificationState> before;
    try {
        before = stored(files_, file_);
    } catch (const JsonError&) {
        log_.line(LogLevel::error, category,
                  "The waiting notifications were damaged and are put aside as {}. Those of the notes come "
                  "back when Vesk opens.",
                  {logPrivate(putAside(files_, file_).native())});
    }
    auto after = before.value_or(NotificationState{});
    body(after);
    if (before && *before == after) return;
    // One fixed name, owned by whoever holds the lock: what a killed process left is taken away here.
    const auto temporary = besides(file_, ".new");
    files_.remove(temporary);
    files_.writeNew(temporary, Json::object({{"waiting", listJson(after.waiting)},
                                             {"shown", listJson(after.shown)},
                                             {"categories", listJson(after.categories)},
                                             {"responses", listJson(after.responses)}})
                                       .dump(Json::Style::pretty) +
                                   "\n");
    try {
        if (before) {
            files_.replace(file_, temporary);
        } else {
            files_.move(temporary, file_);
        }
    } catch (const Error&) {
        files_.remove(temporary);
        throw;
    }
}

}  // namespace vesk
