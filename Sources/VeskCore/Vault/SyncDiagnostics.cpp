#include "VeskCore/Vault/SyncDiagnostics.h"

#include <fmt/format.h>

#include <algorithm>

#include "VeskCore/Support/DateFormat.h"
#include "VeskCore/Support/Match.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

using Row = SyncDiagnostics::Row;
using Section = SyncDiagnostics::Section;

std::string number(int value) {
    return fmt::format("{}", value);
}

std::string yesOrNo(bool value) {
    return value ? "yes" : "no";
}

int countOf(const std::map<std::string, int>& counts, std::string_view key) {
    const auto found = counts.find(std::string(key));
    return found == counts.end() ? 0 : found->second;
}

std::string size(const std::optional<std::int64_t>& bytes) {
    return bytes ? fmt::format("{} bytes", *bytes) : "unknown";
}

std::string startWord(const SyncDiagnostics::Watcher& watcher) {
    if (!watcher.started) return "not started";
    return *watcher.started ? "true" : "false";
}

std::string gatheringWord(const SyncDiagnostics::Watcher& watcher) {
    if (!watcher.started) return "not started";
    return watcher.secondsToGathering ? syncSeconds(*watcher.secondsToGathering) : "never";
}

Section presenterSection(const SyncDiagnostics& report) {
    Section section{"presenter",
                    "Presenter",
                    {{"Registered", yesOrNo(report.presenterRegistered)},
                     {"Registers", number(report.presenterCounts.registered)},
                     {"Unregisters", number(report.presenterCounts.unregistered)},
                     {"Register timeouts", number(report.presenterCounts.registerTimeouts)}}};
    for (const std::string_view kind : PresenterEvent::kinds) {
        section.rows.push_back(
            {fmt::format("Callback {}", kind), number(countOf(report.presenter.callbacks, kind))});
    }
    section.rows.push_back({"Echoes of Vesk's saves", number(report.presenter.echoes)});
    section.rows.push_back({"Unchanged", number(report.presenter.unchanged)});
    section.rows.push_back({"Ignored", number(report.presenter.ignored)});
    return section;
}

Section asksSection(const SyncDiagnostics::Asks& asks, const DateFormat& time) {
    std::string last = "none";
    if (asks.lastRevealed) {
        last = *asks.lastRevealed;
        if (asks.lastRevealedAt) last += " at " + time.format(*asks.lastRevealedAt);
    }
    return {"asks",
            "Folder Asks",
            {{"Asks", number(asks.count)},
             {"Timed out", number(asks.timedOut)},
             {"Cancelled", number(asks.cancelled)},
             {"Failed", number(asks.failed)},
             {"Longest wait", syncSeconds(asks.longestWait)},
             {"Names revealed", number(asks.revealed)},
             {"Last revealed", last}}};
}

Section watcherSection(const SyncDiagnostics::Watcher& watcher) {
    return {"watcher",
            "Metadata Watcher",
            {{"start()", startWord(watcher)},
             {"To gathering", gatheringWord(watcher)},
             {"Results", number(watcher.resultCount)},
             {"Updates", number(watcher.updates)},
             {"Added, changed, removed",
              fmt::format("{}, {}, {}", watcher.added, watcher.changed, watcher.removed)},
             {"Known to iCloud, not on disk", number(watcher.notListed)},
             {"Download requests, errors",
              fmt::format("{}, {}", watcher.downloadRequests, watcher.downloadErrors)}}};
}

Section passesSection(const std::map<std::string, int>& passes) {
    Section section{"passes", "Passes Since Launch", {}};
    int total = 0;
    for (const SyncTrigger trigger : allSyncTriggers) {
        const int count = countOf(passes, rawValue(trigger));
        total += count;
        section.rows.push_back({std::string(rawValue(trigger)), number(count)});
    }
    section.rows.push_back({"Total", number(total)});
    return section;
}

Section walkSection(const std::optional<SyncDiagnostics::Walk>& walk, const DateFormat& time) {
    Section section{"walk", "Last Walk", {{"", "never"}}};
    if (!walk) return section;
    section.rows = {{"Time", time.format(walk->at)},
                    {"Trigger", walk->trigger},
                    {"Walk", syncSeconds(walk->walk)},
                    {"Pass", syncSeconds(walk->pass)},
                    {"Notes", fmt::format("{}, {} as stubs", walk->notes, walk->stubs)},
                    {"Free before", size(walk->freeBefore)},
                    {"Free after", size(walk->freeAfter)}};
    return section;
}

Section pickerSection(const PickerTimes& picker, const DateFormat& time) {
    const auto timeOrNever = [&](const std::optional<TimePoint>& date) {
        return date ? time.format(*date) : std::string("never");
    };
    return {"picker",
            "Folder Picker",
            {{"Last shown", timeOrNever(picker.shown)}, {"Last dismissed", timeOrNever(picker.dismissed)}}};
}

Section arrivalsSection(const std::vector<SyncArrival>& arrivals) {
    Section section{"arrivals", "Arrivals", {}};
    for (const SyncArrival& arrival : arrivals) {
        section.rows.push_back({arrival.name, fmt::format("via {}, {}{} after modified", arrival.trigger,
                                                          arrival.afterPicker ? "after picker, " : "",
                                                          syncSeconds(arrival.latency))});
    }
    if (arrivals.empty()) section.rows.push_back({"", "no note first seen since launch"});
    return section;
}

Section eventsSection(const std::vector<SyncEvent>& events, const DateFormat& time) {
    Section section{"events", "Events", {}};
    for (const SyncEvent& event : events) {
        section.rows.push_back({time.format(event.at), fmt::format("{} {}", event.kind, event.detail)});
    }
    return section;
}

}  // namespace

void SyncDiagnostics::Asks::add(const std::vector<FolderAsk>& added, TimePoint at) {
    using Plain = FolderAsk::Outcome::Plain;
    for (const FolderAsk& ask : added) {
        ++count;
        longestWait = std::max(longestWait, ask.waited.count());
        match(
            ask.outcome, [&](const FolderAsk::Outcome::Failed&) { ++failed; },
            [&](Plain outcome) {
                if (outcome == Plain::timedOut) ++timedOut;
                if (outcome == Plain::cancelled) ++cancelled;
            });
        revealed += static_cast<int>(ask.revealed.size());
        if (ask.revealed.empty()) continue;
        lastRevealed = ask.revealed.back();
        lastRevealedAt = at;
    }
}

std::vector<Section> SyncDiagnostics::sections(std::string_view timeZone) const {
    const DateFormat time("HH:mm:ss", timeZone);
    return {{"vault",
             "Vault",
             {{"Path", vaultPath.value_or("none open")},
              {"Provider", provider},
              {"Asks, presenter and watcher run", yesOrNo(reachesICloud)}}},
            {"switches",
             "Switches",
             {{"Folder asks", std::string(rawValue(switches.asks))},
              {"Presenter", yesOrNo(switches.presenter)},
              {"Watcher", yesOrNo(switches.watcher)}}},
            presenterSection(*this),
            asksSection(asks, time),
            watcherSection(watcher),
            passesSection(passes),
            walkSection(lastWalk, time),
            pickerSection(log.picker, time),
            arrivalsSection(log.arrivals),
            eventsSection(log.events, time)};
}

std::string SyncDiagnostics::reportText(std::string_view timeZone) const {
    std::vector<std::string> lines{
        "Vesk sync report",
        "Generated: " + DateFormat("yyyy-MM-dd HH:mm:ss ZZZZZ", timeZone).format(generatedAt),
        "Build: " + build,
        "System: " + system,
    };
    for (const Section& section : sections(timeZone)) {
        lines.emplace_back();
        lines.push_back(section.title);
        for (const Row& row : section.rows) {
            lines.push_back(row.label.empty() ? "  " + row.value
                                              : fmt::format("  {}: {}", row.label, row.value));
        }
    }
    return join(lines, "\n") + "\n";
}

}  // namespace vesk
