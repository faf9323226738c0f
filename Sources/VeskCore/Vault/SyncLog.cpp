#include "VeskCore/Vault/SyncLog.h"

#include <fmt/format.h>

#include <algorithm>

#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

template <class Item>
void keepLast(std::vector<Item>& items, std::size_t limit) {
    if (items.size() <= limit) return;
    items.erase(items.begin(), items.end() - static_cast<std::ptrdiff_t>(limit));
}

std::size_t revealedCount(const std::vector<FolderAsk>& asks) {
    std::size_t count = 0;
    for (const FolderAsk& ask : asks) count += ask.revealed.size();
    return count;
}

std::size_t notDoneCount(const std::vector<FolderAsk>& asks) {
    return static_cast<std::size_t>(
        std::count_if(asks.begin(), asks.end(), [](const FolderAsk& ask) { return !ask.isDone(); }));
}

std::optional<std::string> dateText(const std::optional<TimePoint>& date) {
    return date ? std::optional(iso8601(*date)) : std::nullopt;
}

/// Members that are of the wrong kind or missing make the whole log undecodable.
struct Undecodable {};

std::string requiredText(const Json& json, std::string_view key) {
    auto text = json.string(key);
    if (!text) throw Undecodable{};
    return std::move(*text);
}

TimePoint requiredDate(const Json& json, std::string_view key) {
    const auto date = parseIso8601(requiredText(json, key));
    if (!date) throw Undecodable{};
    return *date;
}

bool has(const Json& json, std::string_view key) {
    const Json* value = json.find(key);
    return value && !value->isNull();
}

const Json::Array& requiredArray(const Json& json, std::string_view key) {
    const Json* value = json.find(key);
    if (!value || !value->asArray()) throw Undecodable{};
    return *value->asArray();
}

SyncArrival decodedArrival(const Json& json) {
    const auto latency = json.number("latency");
    const auto afterPicker = json.boolean("afterPicker");
    if (!latency || !afterPicker) throw Undecodable{};
    return {.name = requiredText(json, "name"),
            .trigger = requiredText(json, "trigger"),
            .seenAt = requiredDate(json, "seenAt"),
            .latency = *latency,
            .afterPicker = *afterPicker};
}

PickerTimes decodedPicker(const Json* json) {
    if (!json || !json->asObject()) throw Undecodable{};
    PickerTimes picker;
    if (has(*json, "shown")) picker.shown = requiredDate(*json, "shown");
    if (has(*json, "dismissed")) picker.dismissed = requiredDate(*json, "dismissed");
    if (has(*json, "outcome")) picker.outcome = requiredText(*json, "outcome");
    return picker;
}

void setPresent(Json& json, std::string_view key, const std::optional<std::string>& value) {
    if (value) json.set(key, *value);
}

}  // namespace

std::string syncSeconds(double seconds) {
    return fmt::format("{:.2f} s", seconds);
}

bool PickerTimes::covers(TimePoint date) const {
    const bool wasDismissed = dismissed && *dismissed <= date;
    if (shown && *shown > date) return false;
    if (wasDismissed) return Seconds(date - *dismissed) <= afterWindow;
    return shown && Seconds(date - *shown) <= openLimit;
}

void SyncLog::note(std::string_view kind, std::string_view detail, TimePoint at) {
    events.push_back({at, std::string(kind), std::string(detail)});
    keepLast(events, eventLimit);
}

void SyncLog::pickerShown(TimePoint at) {
    picker = {.shown = at};
    note("picker", "shown", at);
}

void SyncLog::pickerDismissed(std::optional<bool> opened, TimePoint at) {
    picker.dismissed = at;
    picker.outcome = opened ? std::optional<std::string>(*opened ? "opened" : "cancelled") : std::nullopt;
    note("picker", picker.outcome ? "dismissed, " + *picker.outcome : "dismissed", at);
}

void SyncLog::recordPass(SyncTrigger trigger, const std::vector<Note>& arrived,
                         const std::vector<FolderAsk>& asks, std::size_t notes,
                         std::optional<std::size_t> changed, double seconds, bool applied, TimePoint at) {
    for (const Note& note : arrived) {
        arrivals.push_back({.name = note.relativePath,
                            .trigger = std::string(rawValue(trigger)),
                            .seenAt = at,
                            .latency = Seconds(at - note.modified).count(),
                            .afterPicker = picker.covers(at)});
    }
    keepLast(arrivals, arrivalLimit);
    const std::size_t revealed = revealedCount(asks), notDone = notDoneCount(asks);
    const bool wokeItself = trigger == SyncTrigger::poll || isPush(trigger);
    if (wokeItself && applied && arrived.empty() && changed.value_or(0) == 0 && revealed == 0 && notDone == 0)
        return;
    std::vector<std::string> parts{fmt::format("{} notes", notes), fmt::format("{} new", arrived.size())};
    if (changed) parts.push_back(fmt::format("{} changed", *changed));
    if (!asks.empty()) {
        parts.push_back(fmt::format("{} asks, {} revealed, {} not done", asks.size(), revealed, notDone));
    }
    parts.push_back(syncSeconds(seconds));
    if (!applied) parts.emplace_back("not applied");
    note("pass", fmt::format("{}: {}", rawValue(trigger), join(parts, ", ")), at);
}

void SyncLog::restore(const SyncLog& saved) {
    *this = saved;
    keepLast(events, eventLimit);
    keepLast(arrivals, arrivalLimit);
}

std::string SyncLog::encoded() const {
    Json eventList = Json::array(), arrivalList = Json::array(), times = Json::object();
    for (const SyncEvent& event : events) {
        eventList.append(
            Json::object({{"at", iso8601(event.at)}, {"kind", event.kind}, {"detail", event.detail}}));
    }
    for (const SyncArrival& arrival : arrivals) {
        arrivalList.append(Json::object({{"name", arrival.name},
                                         {"trigger", arrival.trigger},
                                         {"seenAt", iso8601(arrival.seenAt)},
                                         {"latency", arrival.latency},
                                         {"afterPicker", arrival.afterPicker}}));
    }
    setPresent(times, "shown", dateText(picker.shown));
    setPresent(times, "dismissed", dateText(picker.dismissed));
    setPresent(times, "outcome", picker.outcome);
    return Json::object({{"events", std::move(eventList)},
                         {"arrivals", std::move(arrivalList)},
                         {"picker", std::move(times)}})
        .dump(Json::Style::sortedPretty);
}

SyncLog SyncLog::decoded(std::string_view text) {
    try {
        const Json json = Json::parse(text);
        SyncLog log;
        for (const Json& event : requiredArray(json, "events")) {
            log.events.push_back(
                {requiredDate(event, "at"), requiredText(event, "kind"), requiredText(event, "detail")});
        }
        for (const Json& arrival : requiredArray(json, "arrivals"))
            log.arrivals.push_back(decodedArrival(arrival));
        log.picker = decodedPicker(json.find("picker"));
        return log;
    } catch (const JsonError&) {
        return {};
    } catch (const Undecodable&) {
        return {};
    }
}

std::vector<Note> SyncLog::newlyListed(const std::vector<Note>& notes,
                                       const std::optional<std::set<std::string>>& seen) {
    std::vector<Note> fresh;
    if (!seen) return fresh;
    std::copy_if(notes.begin(), notes.end(), std::back_inserter(fresh),
                 [&](const Note& note) { return !seen->contains(note.relativePath); });
    return fresh;
}

}  // namespace vesk
