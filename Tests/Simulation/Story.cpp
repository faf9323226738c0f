#include "Simulation/Story.h"

#include <algorithm>
#include <array>
#include <random>
#include <string_view>
#include <utility>

namespace vesk::simulation {

namespace {

struct Kind {
    Do what;
    std::string_view name;
    int weight;
    int a, b;  ///< how many values each takes
};

constexpr std::array kinds = {
    Kind{Do::type, "type", 26, 7, 1},
    Kind{Do::wait, "wait", 26, 45, 1},
    Kind{Do::select, "select", 9, 12, 1},
    Kind{Do::flush, "flush", 2, 1, 1},
    Kind{Do::close, "close", 1, 1, 1},
    Kind{Do::create, "create", 2, 8, 1},
    Kind{Do::rename, "rename", 4, 12, 6},
    Kind{Do::move, "move", 3, 12, 3},
    Kind{Do::trash, "trash", 2, 12, 1},
    Kind{Do::trashShown, "trashShown", 2, 1, 1},
    Kind{Do::restore, "restore", 3, 6, 1},
    Kind{Do::emptyTrash, "emptyTrash", 1, 1, 1},
    Kind{Do::retry, "retry", 2, 1, 1},
    Kind{Do::dismiss, "dismiss", 1, 1, 1},
    Kind{Do::activate, "activate", 2, 1, 1},
    Kind{Do::quit, "quit", 2, 3, 1},
    Kind{Do::crash, "crash", 2, 1, 1},
    Kind{Do::crashSoon, "crashSoon", 5, 10, 3},
    Kind{Do::failSoon, "failSoon", 7, 24, 12},
    Kind{Do::fillVault, "fillVault", 4, 3, 1},
    Kind{Do::fillSupport, "fillSupport", 2, 3, 1},
    Kind{Do::intrude, "intrude", 7, 24, 20},
    Kind{Do::overflow, "overflow", 1, 1, 1},
    Kind{Do::localEdit, "localEdit", 7, 12, 21},
    Kind{Do::localMove, "localMove", 4, 12, 8},
    Kind{Do::localDelete, "localDelete", 2, 12, 1},
    Kind{Do::localMoveFolder, "localMoveFolder", 1, 3, 1},
    Kind{Do::deviceEdit, "deviceEdit", 8, 36, 7},
    Kind{Do::deviceCreate, "deviceCreate", 2, 24, 1},
    Kind{Do::deviceMove, "deviceMove", 3, 36, 8},
    Kind{Do::deviceTrash, "deviceTrash", 2, 36, 1},
    Kind{Do::deviceRestore, "deviceRestore", 2, 36, 1},
    Kind{Do::deviceDelete, "deviceDelete", 2, 36, 1},
    Kind{Do::deviceLook, "deviceLook", 5, 3, 1},
    Kind{Do::sync, "sync", 8, 5, 1},
    Kind{Do::deliverAgain, "deliverAgain", 2, 16, 2},
    Kind{Do::evict, "evict", 2, 12, 1},
    Kind{Do::goOnline, "goOnline", 2, 1, 1},
    Kind{Do::goOffline, "goOffline", 1, 1, 1},
    Kind{Do::typeSoon, "typeSoon", 6, 16, 7},
};

const Kind& kindOf(Do what) {
    return *std::find_if(kinds.begin(), kinds.end(), [&](const Kind& kind) { return kind.what == what; });
}

int below(std::mt19937_64& random, int bound) {
    return static_cast<int>(random() % static_cast<std::uint64_t>(bound));
}

/// Leaves out stretches of ever smaller length.
void dropStretches(Story& story, const std::function<bool(const Story&)>& fails) {
    for (std::size_t length = std::max<std::size_t>(story.actions.size() / 2, 1); length > 0;) {
        bool dropped = false;
        for (std::size_t at = 0; at < story.actions.size();) {
            Story shorter = story;
            const auto begin = shorter.actions.begin() + static_cast<std::ptrdiff_t>(at);
            const auto count = std::min(length, shorter.actions.size() - at);
            shorter.actions.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
            if (fails(shorter)) {
                story = std::move(shorter);
                dropped = true;
            } else {
                at += length;
            }
        }
        if (!dropped || length > story.actions.size())
            length =
                length == 1 && !dropped ? 0 : std::max<std::size_t>(length / 2, dropped ? 1 : length / 2);
    }
}

void makeNumbersSmall(Story& story, const std::function<bool(const Story&)>& fails) {
    for (std::size_t at = 0; at < story.actions.size(); ++at) {
        for (int Action::*number : {&Action::a, &Action::b}) {
            const int present = story.actions[at].*number;
            for (int smaller = 0; smaller < present; ++smaller) {
                Story simpler = story;
                simpler.actions[at].*number = smaller;
                if (!fails(simpler)) continue;
                story = std::move(simpler);
                break;
            }
        }
    }
}

void simplifyShape(Story& story, const std::function<bool(const Story&)>& fails) {
    const auto tryWith = [&](auto change) {
        Story simpler = story;
        change(simpler.shape);
        if (fails(simpler)) story = std::move(simpler);
    };
    tryWith([](Shape& shape) { shape.devices = 1; });
    tryWith([](Shape& shape) { shape.hasIndex = false; });
    tryWith([](Shape& shape) { shape.hasWindow = false; });
    tryWith([](Shape& shape) { shape.leavesPlaceholders = false; });
    tryWith([](Shape& shape) { shape.renamesTheLocalSide = false; });
    tryWith([](Shape& shape) { shape.hasExchange = true; });
}

}  // namespace

Story storyOf(std::uint64_t seed, int actions) {
    std::mt19937_64 random(seed);
    Story story;
    story.shape = {.devices = 1 + below(random, 3),
                   .leavesPlaceholders = below(random, 4) == 0,
                   .renamesTheLocalSide = below(random, 2) == 0,
                   .hasExchange = below(random, 4) != 0,
                   .hasIndex = below(random, 16) == 0,
                   .hasWindow = seed % 2 == 0};
    // Not every world has all there is, so that what is there meets often.
    std::vector<int> weights;
    int total = 0;
    for (const auto& kind : kinds) {
        const bool isBasic = kind.what == Do::type || kind.what == Do::wait || kind.what == Do::select;
        weights.push_back(isBasic || below(random, 3) != 0 ? kind.weight : 0);
        total += weights.back();
    }
    for (int i = 0; i < actions; ++i) {
        int drawn = below(random, total);
        std::size_t chosen = 0;
        while (drawn >= weights[chosen]) drawn -= weights[chosen++];
        const auto& kind = kinds[chosen];
        story.actions.push_back({kind.what, below(random, kind.a), below(random, kind.b)});
    }
    return story;
}

Story shrunk(Story story, const std::function<bool(const Story&)>& fails) {
    for (std::size_t size = story.actions.size() + 1; size > story.actions.size();) {
        size = story.actions.size();
        dropStretches(story, fails);
        simplifyShape(story, fails);
        makeNumbersSmall(story, fails);
    }
    return story;
}

std::string nameOf(Do what) {
    return std::string(kindOf(what).name);
}

std::string rowOf(const Story& story) {
    const auto& shape = story.shape;
    std::string row = "{\"\", {{.devices = " + std::to_string(shape.devices);
    if (shape.leavesPlaceholders) row += ", .leavesPlaceholders = true";
    if (shape.renamesTheLocalSide) row += ", .renamesTheLocalSide = true";
    if (!shape.hasExchange) row += ", .hasExchange = false";
    if (shape.hasIndex) row += ", .hasIndex = true";
    if (shape.hasWindow) row += ", .hasWindow = true";
    row += "}, {";
    for (std::size_t i = 0; i < story.actions.size(); ++i) {
        const auto& action = story.actions[i];
        row += i == 0 ? "{Do::" : ", {Do::";
        row += kindOf(action.what).name;
        if (action.a != 0 || action.b != 0) row += ", " + std::to_string(action.a);
        if (action.b != 0) row += ", " + std::to_string(action.b);
        row += "}";
    }
    return row + "}}},";
}

}  // namespace vesk::simulation
