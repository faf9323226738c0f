#include "Vesk/Views/CharmGlyphs.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vesk::views {
namespace {

using Entry = std::pair<std::string_view, std::string_view>;

/// By name.
constexpr auto glyphs = std::to_array<Entry>({
    {"airplane", "✈️"},
    {"bandage", "🩹"},
    {"bathtub", "🛁"},
    {"beach.umbrella", "🏖️"},
    {"bed.double", "🛏️"},
    {"bicycle", "🚲"},
    {"birthday.cake", "🎂"},
    {"book", "📖"},
    {"briefcase", "💼"},
    {"building.2", "🏢"},
    {"building.columns", "🏛️"},
    {"calendar", "📅"},
    {"camera", "📷"},
    {"car", "🚗"},
    {"cart", "🛒"},
    {"chart.bar", "📊"},
    {"chevron.left.forwardslash.chevron.right", "👩‍💻"},
    {"clock", "🕓"},
    {"cloud", "☁️"},
    {"cpu", "⚙️"},
    {"creditcard", "💳"},
    {"cross.case", "🏥"},
    {"cup.and.saucer", "☕"},
    {"desktopcomputer", "🖥️"},
    {"dollarsign.circle", "💰"},
    {"dumbbell", "💪"},
    {"envelope", "✉️"},
    {"exclamationmark.triangle", "⚠️"},
    {"externaldrive", "💾"},
    {"eyeglasses", "👓"},
    {"figure.and.child.holdinghands", "👪"},
    {"figure.basketball", "🏀"},
    {"figure.boxing", "🥊"},
    {"figure.climbing", "🧗"},
    {"figure.cricket", "🏏"},
    {"figure.golf", "⛳"},
    {"figure.hiking", "🥾"},
    {"figure.open.water.swim", "🏊"},
    {"figure.rugby", "🏉"},
    {"figure.run", "🏃"},
    {"figure.strengthtraining.traditional", "🏋️"},
    {"figure.surfing", "🏄"},
    {"figure.walk", "🚶"},
    {"figure.yoga", "🧘"},
    {"flag", "🚩"},
    {"fork.knife", "🍴"},
    {"frying.pan", "🍳"},
    {"gamecontroller", "🎮"},
    {"gift", "🎁"},
    {"globe", "🌍"},
    {"graduationcap", "🎓"},
    {"hanger", "👕"},
    {"headphones", "🎧"},
    {"heart", "❤️"},
    {"hourglass", "⌛"},
    {"house", "🏠"},
    {"key", "🔑"},
    {"ladybug", "🐞"},
    {"laptopcomputer", "💻"},
    {"leaf", "🍃"},
    {"lightbulb", "💡"},
    {"lock", "🔒"},
    {"map", "🗺️"},
    {"mappin", "📍"},
    {"medal", "🏅"},
    {"music.note", "🎵"},
    {"paintbrush", "🎨"},
    {"party.popper", "🎉"},
    {"pawprint", "🐾"},
    {"person.2", "👥"},
    {"phone", "📞"},
    {"pills", "💊"},
    {"powerplug", "🔌"},
    {"printer", "🖨️"},
    {"shield", "🛡️"},
    {"smartphone", "📱"},
    {"soccerball", "⚽"},
    {"sofa", "🛋️"},
    {"star", "⭐"},
    {"stethoscope", "🩺"},
    {"stroller", "👶"},
    {"suitcase", "🧳"},
    {"tennis.racket", "🎾"},
    {"tent", "⛺"},
    {"tree", "🌳"},
    {"trophy", "🏆"},
    {"waveform", "🎤"},
    {"wifi", "📶"},
    {"wineglass", "🍷"},
    {"wrench.and.screwdriver", "🛠️"},
});

static_assert(std::ranges::is_sorted(glyphs, {}, &Entry::first));

}  // namespace

std::string_view glyph(std::string_view symbol) {
    const auto found = std::ranges::lower_bound(glyphs, symbol, {}, &Entry::first);
    return found != glyphs.end() && found->first == symbol ? found->second : std::string_view();
}

}  // namespace vesk::views
