#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "Moments.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Text.h"

namespace vesk::test {
namespace {

using namespace NoteReminder;
using Strings = std::vector<std::string>;

TEST(ReminderScheduleTest, FindsTheNextOccurrence) {
    struct Row {
        const char* name;
        Repeat repeat;
        const char* anchor;
        const char* after;
        const char* expected;
        Calendar calendar = utc;
    };
    const Row rows[] = {
        {"daily, still today", Repeat::daily, "2026-01-01 09:30:00", "2026-11-18 09:29:59",
         "Wed 2026-11-18 09:30"},
        {"daily, after itself", Repeat::daily, "2026-01-01 09:30:00", "2026-11-18 09:30:00",
         "Thu 2026-11-19 09:30"},
        {"before the anchor", Repeat::daily, "2026-12-24 09:30:00", "2026-11-18 12:00:00",
         "Thu 2026-11-19 09:30"},
        {"weekdays over a weekend", Repeat::weekdays, "2026-01-01 09:00:00", "2026-11-20 09:00:00",
         "Mon 2026-11-23 09:00"},
        {"weekdays anchored on Sunday", Repeat::weekdays, "2026-11-22 09:00:00", "2026-11-18 10:00:00",
         "Thu 2026-11-19 09:00"},
        {"weekly", Repeat::weekly, "2026-11-17 08:00:00", "2026-11-18 12:00:00", "Tue 2026-11-24 08:00"},
        {"weekly, later today", Repeat::weekly, "2026-11-11 18:00:00", "2026-11-18 12:00:00",
         "Wed 2026-11-18 18:00"},
        {"monthly on the 31st", Repeat::monthly, "2026-01-31 09:00:00", "2026-01-31 09:00:00",
         "Sat 2026-02-28 09:00"},
        {"monthly goes on with the 28th", Repeat::monthly, "2026-01-31 09:00:00", "2026-02-28 09:00:00",
         "Sat 2026-03-28 09:00"},
        {"monthly over the year", Repeat::monthly, "2026-01-05 09:00:00", "2026-12-05 10:00:00",
         "Tue 2027-01-05 09:00"},
        {"29 February", Repeat::yearly, "2024-02-29 09:00:00", "2026-01-01 00:00:00", "Sat 2026-02-28 09:00"},
        {"29 February in a leap year", Repeat::yearly, "2024-02-29 09:00:00", "2028-01-01 00:00:00",
         "Mon 2028-02-28 09:00"},
        {"31 December", Repeat::yearly, "2020-12-31 23:59:00", "2026-12-31 23:59:00", "Fri 2027-12-31 23:59"},
        // 29 March 2026: the clock in Berlin goes from 2 to 3.
        {"a time that doesn't exist", Repeat::daily, "2026-01-01 02:30:00", "2026-03-28 02:30:00",
         "Sun 2026-03-29 03:00", berlin},
        {"after it", Repeat::daily, "2026-01-01 02:30:00", "2026-03-29 03:00:00", "Mon 2026-03-30 02:30",
         berlin},
        {"a weekly time that doesn't exist", Repeat::weekly, "2026-03-22 02:30:00", "2026-03-28 00:00:00",
         "Sun 2026-03-29 03:00", berlin},
        {"New York, 8 March", Repeat::monthly, "2026-01-08 02:15:00", "2026-03-01 00:00:00",
         "Sun 2026-03-08 03:00", newYork},
    };
    for (const auto& row : rows) {
        const auto next = nextOccurrence(at(row.anchor, row.calendar), row.repeat,
                                         at(row.after, row.calendar), row.calendar);
        EXPECT_EQ(shown(next, row.calendar), row.expected) << row.name;
    }
}

TEST(ReminderScheduleTest, TakesTheFirstOfATimeThatComesTwice) {
    // 25 October 2026: 2:30 in Berlin is 0:30 and 1:30 in UTC.
    const auto anchor = at("2026-01-01 02:30:00", berlin);
    const auto next = [&](const char* after) {
        return shown(nextOccurrence(anchor, Repeat::daily, at(after), berlin));
    };
    EXPECT_EQ(next("2026-10-24 12:00:00"), "Sun 2026-10-25 00:30");
    EXPECT_EQ(next("2026-10-25 00:45:00"), "Mon 2026-10-26 01:30");
    EXPECT_EQ(effectiveDate(anchor, {}, wednesdayNoon, berlin), anchor);
    EXPECT_EQ(shown(effectiveDate(anchor, Repeat::weekly, wednesdayNoon, berlin), berlin),
              "Thu 2026-11-19 02:30");
}

std::string fieldsText(const CalendarFields& fields) {
    std::string text;
    const std::pair<char, std::optional<int>> named[] = {{'y', fields.year},   {'m', fields.month},
                                                         {'d', fields.day},    {'h', fields.hour},
                                                         {'n', fields.minute}, {'w', fields.weekday}};
    for (const auto& [name, value] : named) {
        if (value) text += name + std::to_string(*value);
    }
    return text;
}

TEST(ReminderScheduleTest, MakesTheRequestsOfAReminder) {
    struct Row {
        const char* name;
        const char* date;
        std::optional<Repeat> repeat;
        Strings expected;
    };
    const Row rows[] = {
        {"ahead", "2026-11-18 12:01:00", {}, {"remind:a.md y2026m11d18h12n1 Wed 2026-11-18 12:01"}},
        {"now", "2026-11-18 12:00:30", {}, {}},
        {"daily", "2026-11-01 09:05:00", Repeat::daily, {"remind:a.md h9n5 repeats Thu 2026-11-19 09:05"}},
        {"weekdays",
         "2026-11-01 09:00:00",
         Repeat::weekdays,
         {"remind:a.md#2 h9n0w2 repeats Thu 2026-11-19 09:00",
          "remind:a.md#3 h9n0w3 repeats Thu 2026-11-19 09:00",
          "remind:a.md#4 h9n0w4 repeats Thu 2026-11-19 09:00",
          "remind:a.md#5 h9n0w5 repeats Thu 2026-11-19 09:00",
          "remind:a.md#6 h9n0w6 repeats Thu 2026-11-19 09:00"}},
        {"weekdays, first on a Saturday",
         "2026-11-21 09:00:00",
         Repeat::weekdays,
         {"remind:a.md y2026m11d21h9n0 Sat 2026-11-21 09:00"}},
        {"weekly, on the pattern",
         "2026-11-20 09:00:00",
         Repeat::weekly,
         {"remind:a.md h9n0w6 repeats Fri 2026-11-20 09:00"}},
        {"weekly, weeks ahead",
         "2026-11-27 09:00:00",
         Repeat::weekly,
         {"remind:a.md y2026m11d27h9n0 Fri 2026-11-27 09:00"}},
        {"monthly, first on the 30th",
         "2026-11-30 09:00:00",
         Repeat::monthly,
         {"remind:a.md y2026m11d30h9n0 Mon 2026-11-30 09:00"}},
        {"monthly on the 30th",
         "2026-10-30 09:00:00",
         Repeat::monthly,
         {"remind:a.md d28h9n0 repeats Sat 2026-11-28 09:00"}},
        {"yearly on 29 February",
         "2024-02-29 09:00:00",
         Repeat::yearly,
         {"remind:a.md m2d28h9n0 repeats Sun 2027-02-28 09:00"}},
    };
    for (const auto& row : rows) {
        Strings found;
        for (const auto& request : requests({.path = "a.md",
                                   .title = "A",
                                   .date = at(row.date),
                                   .repeatRule = row.repeat,
                                   .flagged = true},
                                            wednesdayNoon, utc)) {
            EXPECT_EQ(request.path + request.title, "a.mdA");
            EXPECT_TRUE(request.flagged);
            found.push_back(request.identifier + " " + fieldsText(request.components) +
                            (request.repeats ? " repeats " : " ") + shown(request.fires));
        }
        EXPECT_EQ(found, row.expected) << row.name;
    }
}

Reminder reminderAt(std::string path, const char* date, std::optional<Repeat> repeat = {}) {
    return {.path = std::move(path), .title = "T", .date = at(date), .repeatRule = repeat};
}

PendingRequest waiting(std::string identifier, CalendarFields fields = {}, bool repeats = false) {
    return {.identifier = std::move(identifier), .components = fields, .repeats = repeats, .title = "T"};
}

struct PlanText {
    Strings add, remove, clear;
};

PlanText plan(const std::vector<Reminder>& desired, const std::vector<PendingRequest>& pending,
              std::size_t cap) {
    const auto found = schedulePlan(desired, pending, wednesdayNoon, cap, utc);
    PlanText text{{}, found.remove, found.clearDelivered};
    for (const auto& request : found.add) text.add.push_back(request.identifier);
    return text;
}

TEST(ReminderScheduleTest, PlansTheSoonestThatFit) {
    const std::vector desired{reminderAt("late.md", "2026-12-01 09:00:00"),
                              reminderAt("days.md", "2026-01-01 09:00:00", Repeat::weekdays),
                              reminderAt("b.md", "2026-11-18 13:00:00"),
                              reminderAt("a.md", "2026-11-18 13:00:00"),
                              reminderAt("past.md", "2026-11-18 12:00:00")};
    EXPECT_EQ(plan(desired, {}, 60).add,
              (Strings{"remind:a.md", "remind:b.md", "remind:days.md#2", "remind:days.md#3",
                       "remind:days.md#4", "remind:days.md#5", "remind:days.md#6", "remind:late.md"}));
    // The five of the weekdays don't fit, the one behind them does.
    EXPECT_EQ(plan(desired, {}, 6).add, (Strings{"remind:a.md", "remind:b.md", "remind:late.md"}));
    EXPECT_EQ(plan(desired, {}, 2).add, (Strings{"remind:a.md", "remind:b.md"}));
    // Snoozes and other programs' requests take their places first.
    EXPECT_EQ(plan(desired, {waiting("snooze:b.md"), waiting("other")}, 3).add, (Strings{"remind:a.md"}));

    std::vector<PendingRequest> full(64, waiting("foreign"));
    full.push_back(waiting("remind:a.md"));
    const auto crowded = plan(desired, full, 64);
    EXPECT_EQ(crowded.add, Strings{});
    EXPECT_EQ(crowded.remove, Strings{"remind:a.md"});
    EXPECT_EQ(crowded.clear, Strings{});
}

TEST(ReminderScheduleTest, AddsOnlyWhatDiffers) {
    const auto desired = std::vector{reminderAt("a.md", "2026-11-20 09:00:00", Repeat::weekly)};
    const auto same = waiting("remind:a.md", {.hour = 9, .minute = 0, .weekday = 6}, true);
    EXPECT_EQ(plan(desired, {same}, 60).add, Strings{});
    auto other = same;
    other.title = "t";
    EXPECT_EQ(plan(desired, {other}, 60).add, Strings{"remind:a.md"});
    EXPECT_EQ(plan(desired, {other}, 60).remove, Strings{});
    other = same;
    other.repeats = false;
    EXPECT_EQ(plan(desired, {other}, 60).add, Strings{"remind:a.md"});
    other = same;
    other.components.day = 20;
    EXPECT_EQ(plan(desired, {other}, 60).add, Strings{"remind:a.md"});
}

TEST(ReminderScheduleTest, ClearsBannersOfNotesWithoutAReminder) {
    const std::vector desired{reminderAt("a.md#2", "2026-01-01 09:00:00"),
                              reminderAt("b.md", "2026-01-01 09:00:00"),
                              reminderAt("c.md", "2026-11-19 09:00:00")};
    const std::vector pending{waiting("snooze:b.md"),   waiting("snooze:gone.md"), waiting("remind:b.md#3"),
                              waiting("remind:a.md#2"), waiting("remind:a.md"),    waiting("remind:b.md#x"),
                              waiting("remind:b.md#"),  waiting("remind:b.md"),    waiting("remind:a.md#2#4"),
                              waiting("reminder"),      waiting("snooze:b.md#3")};
    const auto found = plan(desired, pending, 60);
    EXPECT_EQ(found.add, Strings{"remind:c.md"});
    EXPECT_EQ(found.remove,
              (Strings{"remind:a.md", "remind:a.md#2", "remind:a.md#2#4", "remind:b.md", "remind:b.md#",
                       "remind:b.md#3", "remind:b.md#x", "snooze:b.md#3", "snooze:gone.md"}));
    EXPECT_EQ(found.clear,
              (Strings{"remind:a.md", "remind:b.md#", "remind:b.md#x", "snooze:b.md#3", "snooze:gone.md"}));
}

/// The plan as it reads in words, without care for speed.
SchedulePlan slowPlan(std::vector<Reminder> desired, const std::vector<PendingRequest>& pending,
                      TimePoint now, std::size_t cap, const Calendar& calendar) {
    const auto isOurs = [](const std::string& id) { return id.rfind("remind:", 0) == 0; };
    const auto isSnooze = [](const std::string& id) { return id.rfind("snooze:", 0) == 0; };
    const auto wants = [&](const std::string& path) {
        return std::any_of(desired.begin(), desired.end(), [&](const auto& it) { return it.path == path; });
    };
    std::size_t left = cap;
    for (const auto& it : pending) {
        if (!isOurs(it.identifier) && left > 0) --left;
    }
    std::vector<std::vector<Scheduled>> groups;
    for (const auto& it : desired) {
        if (!it.repeatRule && it.date <= now) continue;
        groups.push_back(requests(it, now, calendar));
    }
    SchedulePlan result;
    Strings taken;
    while (!groups.empty()) {
        std::size_t best = 0;
        for (std::size_t i = 1; i < groups.size(); ++i) {
            const auto &one = groups[i].front(), &other = groups[best].front();
            if (one.fires < other.fires || (one.fires == other.fires && one.path < other.path)) best = i;
        }
        const auto group = groups[best];
        groups.erase(groups.begin() + static_cast<std::ptrdiff_t>(best));
        if (group.size() > left) continue;
        left -= group.size();
        for (const auto& request : group) {
            taken.push_back(request.identifier);
            bool settled = false;
            for (const auto& it : pending) {
                settled = settled || (it.identifier == request.identifier && it.repeats == request.repeats &&
                                      it.title == request.title && it.components == request.components);
            }
            if (!settled) result.add.push_back(request);
        }
    }
    for (const auto& it : pending) {
        const auto& id = it.identifier;
        const bool ours = isOurs(id) && std::find(taken.begin(), taken.end(), id) == taken.end();
        const bool snooze = isSnooze(id) && !wants(id.substr(7));
        if (!ours && !snooze) continue;
        result.remove.push_back(id);
        const bool isNumbered = id.size() > 9 && id[id.size() - 2] == '#' && isAsciiDigit(id.back());
        const bool owned =
            ours && (wants(id.substr(7)) || (isNumbered && wants(id.substr(7, id.size() - 9))));
        if (!owned) result.clearDelivered.push_back(id);
    }
    std::sort(result.remove.begin(), result.remove.end());
    std::sort(result.clearDelivered.begin(), result.clearDelivered.end());
    return result;
}

TEST(ReminderScheduleTest, AgreesWithASlowReadingOfThePlan) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&](int limit) { return std::uniform_int_distribution(0, limit - 1)(random); };
    const Strings paths{"a.md", "b.md", "c.md", "d/e.md", "f.md", "f.md#2", "g.md"};
    for (int round = 0; round < 2000; ++round) {
        std::vector<Reminder> desired;
        std::vector<PendingRequest> pending;
        const auto addPending = [&](PendingRequest request) {
            for (const auto& it : pending) {
                if (it.identifier == request.identifier) return;
            }
            pending.push_back(std::move(request));
        };
        for (const auto& path : paths) {
            if (below(3) == 0) continue;
            Reminder reminder{.path = path,
                              .title = below(2) ? "T" : "U",
                              .date = wednesdayNoon + std::chrono::hours(below(200) - 100)};
            if (below(2)) reminder.repeatRule = static_cast<Repeat>(below(5));
            desired.push_back(reminder);
            for (const auto& it : requests(reminder, wednesdayNoon, berlin)) {
                if (below(2))
                    addPending({it.identifier, it.components, it.repeats, below(4) ? it.title : "V"});
            }
        }
        for (int i = below(4); i > 0; --i) {
            const auto& path = paths[static_cast<std::size_t>(below(7))];
            const char* const prefixes[] = {"remind:", "snooze:", "other:"};
            addPending(waiting(prefixes[below(3)] + path + (below(3) ? "" : "#3")));
        }
        std::shuffle(desired.begin(), desired.end(), random);
        const auto cap = static_cast<std::size_t>(below(14));
        ASSERT_EQ(schedulePlan(desired, pending, wednesdayNoon, cap, berlin),
                  slowPlan(desired, pending, wednesdayNoon, cap, berlin));
    }
}

}  // namespace
}  // namespace vesk::test
