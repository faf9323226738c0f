// Where notes went while the application had them open.
#include <algorithm>

#include "VeskCore/Vault/ForeignEdit.h"
#include "VeskCore/Vault/Vault.h"

namespace vesk::ForeignEdit {

namespace {

constexpr int maximumHops = 8;

/// What follows `folder` in `path`, if it is `path` or a folder above it.
std::optional<std::string_view> below(std::string_view path, std::string_view folder) {
    if (!path.starts_with(folder)) return {};
    path.remove_prefix(folder.size());
    if (!path.empty() && path.front() != '/') return {};
    return path;
}

bool leadsIntoDocument(std::string_view from, std::string_view to) {
    return Vault::indexedKind(from) == IndexedKind::note && Vault::isDocument(to);
}

}  // namespace

void Departures::arrived(std::string_view path) {
    arrivals_.insert_or_assign(std::string(path), ++clock_);
}

void Departures::moved(std::string_view from, std::string_view to) {
    if (from == to || leadsIntoDocument(from, to)) return;
    const int present = since(from);
    const bool isKnown = std::any_of(moves_.begin(), moves_.end(), [&](const Move& move) {
        return move.from == from && move.to == to && move.at > present;
    });
    if (!isKnown) moves_.push_back({std::string(from), std::string(to), ++clock_});
}

void Departures::trashed(std::string_view path) {
    trashings_.push_back({std::string(path), ++clock_});
}

int Departures::since(std::string_view path) const {
    int latest = 0;
    for (const Move& move : moves_) {
        if (below(path, move.to)) latest = std::max(latest, move.at);
    }
    const auto arrival = arrivals_.find(path);
    return arrival == arrivals_.end() ? latest : std::max(latest, arrival->second);
}

std::optional<Departures::Route> Departures::route(std::string_view path) const {
    if (!follows_) return {};
    Route route{std::string(path), since(path)};
    for (int hop = 0; hop < maximumHops; ++hop) {
        const Move* next = nullptr;
        for (const Move& move : moves_) {
            if (move.at > route.at && below(route.path, move.from) && (!next || move.at < next->at))
                next = &move;
        }
        if (!next) break;
        route = {next->to + std::string(*below(route.path, next->from)), next->at};
    }
    if (route.path == path) return {};
    return route;
}

std::optional<std::string> Departures::destination(std::string_view path) const {
    auto end = route(path);
    if (!end) return {};
    return std::move(end->path);
}

bool Departures::wasTrashed(std::string_view path) const {
    return wasTrashed(path, since(path));
}

bool Departures::wasTrashed(std::string_view path, int after) const {
    return std::any_of(trashings_.begin(), trashings_.end(), [&](const Trashing& trashing) {
        return trashing.at > after && below(path, trashing.path);
    });
}

Departures Departures::notFollowing() const {
    Departures copy = *this;
    copy.follows_ = false;
    return copy;
}

}  // namespace vesk::ForeignEdit
