// Reminder phrases, and the same text as a note: a phrase never gives a past date, and what is written into a
// note is read back and can be taken out again.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "VeskCore/Reminders/EnglishDateDetector.h"
#include "VeskCore/Reminders/NoteReminder.h"
#include "VeskCore/Support/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vesk;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (size > 2000 || !isValidUtf8(input)) return 0;
    static const EnglishDateDetector detector;
    static const Calendar berlin{.timeZone = "Europe/Berlin", .firstWeekday = 2};
    const auto now = timeFromSecondsSince1970(1'795'000'000.5);
    const auto intent = NoteReminder::parseIntent(input, now, berlin, detector);
    if (const auto* set = std::get_if<NoteReminder::PhraseIntent::Set>(&intent.value);
        set && set->date <= now)
        std::abort();
    if (const auto date = NoteReminder::date(input, berlin)) {
        // A time in a clock change is read as one that exists, and written as that.
        if (NoteReminder::date(NoteReminder::format(*date, berlin), berlin) != date) std::abort();
    }
    const auto written = NoteReminder::setting(now, input, berlin);
    if (NoteReminder::reminder(written, berlin) !=
        NoteReminder::date(NoteReminder::format(now, berlin), berlin))
        std::abort();
    if (NoteReminder::reminder(NoteReminder::setting(std::nullopt, written, berlin), berlin)) std::abort();
    NoteReminder::summary(input, 20);
    for (auto kind : {NoteReminder::ActionKind::snooze, NoteReminder::ActionKind::done})
        NoteReminder::applying(kind, input, now, berlin);
    return 0;
}
