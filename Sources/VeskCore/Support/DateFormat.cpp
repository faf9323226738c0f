#include "VeskCore/Support/DateFormat.h"

#include <fmt/format.h>
#include <unicode/gregocal.h>
#include <unicode/rbnf.h>
#include <unicode/smpdtfmt.h>

#include <chrono>
#include <limits>
#include <mutex>
#include <vector>

#include "VeskCore/Support/Ensure.h"
#include "VeskCore/Support/Text.h"

namespace vesk {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

double icuDate(TimePoint time) {
    return static_cast<double>(std::chrono::floor<milliseconds>(time).time_since_epoch().count());
}

icu::UnicodeString icuText(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(
        text.data(), static_cast<std::int32_t>(std::min<std::size_t>(text.size(), 1 << 30))));
}

std::unique_ptr<icu::SimpleDateFormat> makeFormat(const icu::UnicodeString& pattern,
                                                  const icu::TimeZone& zone) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale locale("en_US_POSIX");
    auto format = std::make_unique<icu::SimpleDateFormat>(pattern, locale, status);
    VESK_ENSURE(U_SUCCESS(status));
    auto calendar = std::make_unique<icu::GregorianCalendar>(zone, locale, status);
    VESK_ENSURE(U_SUCCESS(status));
    calendar->setGregorianChange(-std::numeric_limits<double>::max(), status);
    VESK_ENSURE(U_SUCCESS(status));
    calendar->setSkippedWallTimeOption(UCAL_WALLTIME_LAST);
    calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
    format->adoptCalendar(calendar.release());
    format->setLenient(false);
    return format;
}

/// Whether the pattern has a letter for the zone outside quoted text: then the text itself says the zone.
bool namesZone(std::string_view pattern) {
    bool quoted = false;
    for (char c : pattern) {
        if (c == '\'') {
            quoted = !quoted;
        } else if (!quoted && std::string_view("zZOvVXx").find(c) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

std::optional<double> parseWhole(const icu::SimpleDateFormat& format, const icu::UnicodeString& text) {
    icu::ParsePosition position(0);
    double date = format.parse(text, position);
    if (position.getErrorIndex() >= 0 || position.getIndex() != text.length()) return {};
    // Years of one to four digits: what every form that a date takes here has room for.
    constexpr double kFirst = -62'135'596'800'000.0, kBehind = 253'402'300'800'000.0, kDay = 86'400'000.0;
    if (!(date >= kFirst - kDay && date < kBehind + kDay)) return {};
    return date;
}

std::string formatted(const icu::DateFormat& format, TimePoint time) {
    icu::UnicodeString text;
    format.format(icuDate(time), text);
    std::string result;
    return text.toUTF8String(result);
}

icu::Locale icuLocale(std::string_view name) {
    return icu::Locale::createCanonical(std::string(name).c_str());
}

/// The time by a format of the user's locale, which is taken over; ISO 8601 without one (ICU's locale data is
/// missing).
std::string inLocale(icu::DateFormat* owned, TimePoint time, std::string_view timeZone) {
    std::unique_ptr<icu::DateFormat> format(owned);
    if (!format) return iso8601(time);
    format->adoptTimeZone(icu::TimeZone::createTimeZone(icuText(timeZone)));
    return formatted(*format, time);
}

/// Reads the fields of a date one after the other; after a failure every further read fails.
class FieldReader {
public:
    explicit FieldReader(std::string_view text) : text_(text) {}

    int digits(std::size_t count) {
        int value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            if (text_.empty() || !isAsciiDigit(text_.front())) return fail();
            value = value * 10 + (text_.front() - '0');
            text_.remove_prefix(1);
        }
        return value;
    }
    bool take(char c) {
        if (failed_ || text_.empty() || text_.front() != c) return false;
        text_.remove_prefix(1);
        return true;
    }
    void expect(char c) {
        if (!take(c)) fail();
    }
    /// The digits of a fraction of a second; those beyond the microsecond are dropped.
    microseconds fraction() {
        int value = 0, unit = 100'000;
        if (text_.empty() || !isAsciiDigit(text_.front())) fail();
        while (!text_.empty() && isAsciiDigit(text_.front())) {
            value += (text_.front() - '0') * unit;
            unit /= 10;
            text_.remove_prefix(1);
        }
        return microseconds(value);
    }
    bool complete() const { return !failed_ && text_.empty(); }

private:
    int fail() {
        failed_ = true;
        text_ = {};
        return 0;
    }
    std::string_view text_;
    bool failed_ = false;
};

bool isTimeOfDay(const DateComponents& parts) {
    return parts.hour <= 23 && parts.minute <= 59 && parts.second <= 59;
}

std::chrono::year_month_day dayOf(const DateComponents& parts) {
    return {std::chrono::year(parts.year), std::chrono::month(static_cast<unsigned>(parts.month)),
            std::chrono::day(static_cast<unsigned>(parts.day))};
}

bool isDay(const DateComponents& parts) {
    return dayOf(parts).ok();
}

/// A pattern of nothing but numbers of fixed width and literal text, such as "yyyy-MM-dd". Most dates are
/// read by one of these, many of them while a vault is indexed, and ICU takes thirty times as long.
class DigitPattern {
public:
    /// None if the pattern asks for anything else.
    static std::optional<DigitPattern> make(std::string_view pattern) {
        DigitPattern result;
        bool quoted = false;
        while (!pattern.empty()) {
            char c = pattern.front();
            if (c == '\'') {
                if (pattern.substr(0, 2) == "''") return {};
                quoted = !quoted;
                pattern.remove_prefix(1);
            } else if (quoted || !isAsciiLetter(c)) {
                result.pieces_.push_back({.literal = c});
                pattern.remove_prefix(1);
            } else if (!result.addField(pattern)) {
                return {};
            }
        }
        if (quoted || result.pieces_.empty()) return {};
        return result;
    }

    std::optional<DateComponents> parse(std::string_view text) const {
        FieldReader reader(text);
        DateComponents parts;
        for (const auto& piece : pieces_) {
            if (piece.field) {
                parts.*piece.field = reader.digits(piece.width);
            } else {
                reader.expect(piece.literal);
            }
        }
        if (!reader.complete() || parts.year < 1 || !isTimeOfDay(parts) || !isDay(parts)) return {};
        return parts;
    }

private:
    struct Piece {
        int DateComponents::*field = nullptr;
        std::size_t width = 0;
        char literal = 0;  // where there is no field
    };

    bool addField(std::string_view& pattern) {
        struct Known {
            std::string_view letters;
            int DateComponents::*field;
        };
        static constexpr Known kKnown[] = {
            {"yyyy", &DateComponents::year}, {"MM", &DateComponents::month},  {"dd", &DateComponents::day},
            {"HH", &DateComponents::hour},   {"mm", &DateComponents::minute}, {"ss", &DateComponents::second},
        };
        auto letters = pattern.substr(0, pattern.find_first_not_of(pattern.front()));
        for (const auto& known : kKnown) {
            if (known.letters != letters) continue;
            for (const auto& piece : pieces_) {
                if (piece.field == known.field) return false;  // twice the same may disagree
            }
            pieces_.push_back({.field = known.field, .width = letters.size()});
            pattern.remove_prefix(letters.size());
            return true;
        }
        return false;
    }

    std::vector<Piece> pieces_;
};

}  // namespace

struct DateFormat::Impl {
    Calendar calendar;
    std::optional<DigitPattern> digits;  // reads instead of `format` where it can
    mutable std::mutex formatsLock;      // ICU's formats are for one thread at a time
    std::unique_ptr<icu::SimpleDateFormat> format;
    std::unique_ptr<icu::SimpleDateFormat> check;  // the same in UTC; none when the text names its zone
};

DateFormat::DateFormat(std::string_view pattern, std::string_view timeZone) {
    auto impl = std::make_shared<Impl>();
    auto icuPattern = icuText(pattern);
    std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(icuText(timeZone)));
    impl->format = makeFormat(icuPattern, *zone);
    impl->calendar.timeZone = timeZone;
    impl->digits = DigitPattern::make(pattern);
    if (!impl->digits && !namesZone(pattern)) {
        impl->check = makeFormat(icuPattern, *icu::TimeZone::getGMT());
        // What passed the check exists in the calendar; a time of day that a clock change takes away moves
        // on.
        impl->format->setLenient(true);
    }
    impl_ = std::move(impl);
}

DateFormat::~DateFormat() = default;
DateFormat::DateFormat(const DateFormat&) = default;
DateFormat& DateFormat::operator=(const DateFormat&) = default;

std::string DateFormat::format(TimePoint time) const {
    std::lock_guard held(impl_->formatsLock);
    return formatted(*impl_->format, time);
}

std::optional<TimePoint> DateFormat::parse(std::string_view text) const {
    if (impl_->digits) {
        auto parts = impl_->digits->parse(text);
        return parts ? std::optional(date(*parts, impl_->calendar)) : std::nullopt;
    }
    constexpr std::size_t kLongest = 1000;  // far beyond any date
    if (text.empty() || text.size() > kLongest) return {};
    auto icu = icuText(text);
    std::lock_guard held(impl_->formatsLock);
    if (impl_->check) {
        // ICU takes one digit for two, other scripts' digits and a wrong weekday. Writing the date again
        // shows them. In UTC, where no clock change takes a time of day away. Names count without regard to
        // case.
        auto checked = parseWhole(*impl_->check, icu);
        if (!checked) return {};
        icu::UnicodeString again;
        impl_->check->format(*checked, again);
        if (again.caseCompare(icu, U_FOLD_CASE_DEFAULT) != 0) return {};
    }
    auto parsed = parseWhole(*impl_->format, icu);
    if (!parsed) return {};
    return TimePoint(milliseconds(static_cast<std::int64_t>(*parsed)));
}

std::string iso8601(TimePoint time) {
    auto day = std::chrono::floor<std::chrono::days>(time);
    std::chrono::year_month_day date(day);
    std::chrono::hh_mm_ss clock(std::chrono::floor<milliseconds>(time - day));
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                       clock.subseconds().count());
}

std::optional<TimePoint> parseIso8601(std::string_view text) {
    FieldReader reader(text);
    DateComponents parts;
    parts.year = reader.digits(4);
    reader.expect('-');
    parts.month = reader.digits(2);
    reader.expect('-');
    parts.day = reader.digits(2);
    reader.expect('T');
    parts.hour = reader.digits(2);
    reader.expect(':');
    parts.minute = reader.digits(2);
    reader.expect(':');
    parts.second = reader.digits(2);
    microseconds fraction{};
    if (reader.take('.')) fraction = reader.fraction();
    std::chrono::minutes offset{};
    if (!reader.take('Z')) {
        bool behind = reader.take('-');
        if (!behind) reader.expect('+');
        int hours = reader.digits(2);
        reader.take(':');
        int minutes = reader.digits(2);
        if (hours > 23 || minutes > 59) return {};
        offset = std::chrono::minutes((hours * 60 + minutes) * (behind ? -1 : 1));
    }
    if (!reader.complete() || !isTimeOfDay(parts) || !isDay(parts)) return {};
    return TimePoint(std::chrono::sys_days(dayOf(parts))) + std::chrono::hours(parts.hour) +
           std::chrono::minutes(parts.minute) + std::chrono::seconds(parts.second) + fraction - offset;
}

const std::string& deviceTimeZone() {
    static const std::string zone = [] {
        std::unique_ptr<icu::TimeZone> host(icu::TimeZone::detectHostTimeZone());
        icu::UnicodeString id;
        if (host) host->getID(id);
        // The environment may name a zone that nobody knows; the C library takes that for UTC too.
        std::unique_ptr<icu::TimeZone> known(icu::TimeZone::createTimeZone(id));
        std::string name;
        return *known == icu::TimeZone::getUnknown() ? std::string("UTC") : id.toUTF8String(name);
    }();
    return zone;
}

std::string mediumDateShortTime(TimePoint time, std::string_view timeZone, std::string_view locale) {
    return inLocale(icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kShort,
                                                            icuLocale(locale)),
                    time, timeZone);
}

std::string shortTime(TimePoint time, std::string_view timeZone, std::string_view locale) {
    auto* format = icu::DateFormat::createTimeInstance(icu::DateFormat::kShort, icuLocale(locale));
    return replaceAll(inLocale(format, time, timeZone), "\u202F", " ");
}

std::string weekdayName(TimePoint time, std::string_view timeZone, std::string_view locale) {
    UErrorCode status = U_ZERO_ERROR;
    auto format = std::make_unique<icu::SimpleDateFormat>("EEEE", icuLocale(locale), status);
    return inLocale(U_SUCCESS(status) ? format.release() : nullptr, time, timeZone);
}

std::string localisedDate(TimePoint time, std::string_view skeleton, std::string_view timeZone,
                          std::string_view locale) {
    UErrorCode status = U_ZERO_ERROR;
    auto* format = icu::DateFormat::createInstanceForSkeleton(icuText(replaceAll(skeleton, " ", "")),
                                                              icuLocale(locale), status);
    return inLocale(format, time, timeZone);
}

std::string ordinal(int number, std::string_view locale) {
    UErrorCode status = U_ZERO_ERROR;
    icu::RuleBasedNumberFormat format(icu::URBNF_ORDINAL, icuLocale(locale), status);
    if (U_FAILURE(status)) return fmt::format("{}", number);
    icu::UnicodeString text;
    format.format(static_cast<std::int32_t>(number), text);
    std::string result;
    return text.toUTF8String(result);
}

}  // namespace vesk
