#include "VeskCore/Vault/VaultStyle.h"

#include <algorithm>
#include <array>

#include "VeskCore/Platform/FilePlatform.h"
#include "VeskCore/Support/Json.h"
#include "VeskCore/Support/Text.h"
#include "VeskCore/Support/Unicode.h"
#include "VeskCore/Vault/AtomicWrite.h"

namespace vesk {

namespace {

constexpr std::string_view colorsKey = "folderColors";

constexpr std::array colors{FolderColor::red,  FolderColor::orange, FolderColor::yellow, FolderColor::green,
                            FolderColor::teal, FolderColor::blue,   FolderColor::indigo, FolderColor::purple,
                            FolderColor::pink, FolderColor::brown,  FolderColor::gray};

using Group = Charm::Group;

constexpr std::array groupList{Group::places, Group::home, Group::life, Group::food,    Group::health,
                               Group::sport,  Group::work, Group::tech, Group::leisure, Group::practical};

constexpr auto charms = std::to_array<Charm>({
    {"airplane", "Travel", Group::places},
    {"car", "Car", Group::places},
    {"building.2", "Office", Group::places},
    {"mappin", "Place", Group::places},
    {"globe", "World", Group::places},
    {"beach.umbrella", "Holiday", Group::places},
    {"map", "Map", Group::places},
    {"suitcase", "Packing", Group::places},
    {"tent", "Camping", Group::places},
    {"house", "Home", Group::home},
    {"bed.double", "Sleep", Group::home},
    {"bathtub", "Bathroom", Group::home},
    {"sofa", "Lounge", Group::home},
    {"hanger", "Clothes", Group::home},
    {"eyeglasses", "Glasses", Group::home},
    {"tree", "Garden", Group::home},
    {"person.2", "Friends", Group::home},
    {"figure.and.child.holdinghands", "Family", Group::home},
    {"birthday.cake", "Birthday", Group::life},
    {"party.popper", "Celebration", Group::life},
    {"gift", "Gift", Group::life},
    {"stroller", "Baby", Group::life},
    {"pawprint", "Pet", Group::life},
    {"heart", "Love", Group::life},
    {"leaf", "Nature", Group::life},
    {"cup.and.saucer", "Coffee", Group::food},
    {"fork.knife", "Food", Group::food},
    {"frying.pan", "Cooking", Group::food},
    {"wineglass", "Drinks", Group::food},
    {"cart", "Shopping", Group::food},
    {"stethoscope", "Doctor", Group::health},
    {"pills", "Medication", Group::health},
    {"bandage", "First aid", Group::health},
    {"cross.case", "Medical", Group::health},
    {"figure.run", "Exercise", Group::sport},
    {"figure.walk", "Walking", Group::sport},
    {"figure.hiking", "Hiking", Group::sport},
    {"bicycle", "Cycling", Group::sport},
    {"figure.open.water.swim", "Swimming", Group::sport},
    {"dumbbell", "Gym", Group::sport},
    {"figure.strengthtraining.traditional", "Weights", Group::sport},
    {"figure.yoga", "Yoga", Group::sport},
    {"figure.boxing", "Boxing", Group::sport},
    {"figure.climbing", "Climbing", Group::sport},
    {"figure.surfing", "Surfing", Group::sport},
    {"soccerball", "Soccer", Group::sport},
    {"figure.basketball", "Basketball", Group::sport},
    {"tennis.racket", "Tennis", Group::sport},
    {"figure.cricket", "Cricket", Group::sport},
    {"figure.rugby", "Rugby", Group::sport},
    {"figure.golf", "Golf", Group::sport},
    {"trophy", "Trophy", Group::sport},
    {"medal", "Medal", Group::sport},
    {"briefcase", "Business", Group::work},
    {"laptopcomputer", "Work", Group::work},
    {"dollarsign.circle", "Money", Group::work},
    {"creditcard", "Banking", Group::work},
    {"chart.bar", "Finance", Group::work},
    {"building.columns", "Legal", Group::work},
    {"desktopcomputer", "Desktop", Group::tech},
    {"smartphone", "Mobile", Group::tech},
    {"printer", "Printer", Group::tech},
    {"externaldrive", "Backup", Group::tech},
    {"cpu", "Hardware", Group::tech},
    {"wifi", "Wi-Fi", Group::tech},
    {"powerplug", "Power", Group::tech},
    {"cloud", "Cloud", Group::tech},
    {"shield", "Privacy", Group::tech},
    {"chevron.left.forwardslash.chevron.right", "Code", Group::tech},
    {"ladybug", "Bug", Group::tech},
    {"book", "Reading", Group::leisure},
    {"graduationcap", "Study", Group::leisure},
    {"music.note", "Music", Group::leisure},
    {"headphones", "Podcast", Group::leisure},
    {"waveform", "Voice", Group::leisure},
    {"gamecontroller", "Games", Group::leisure},
    {"camera", "Photos", Group::leisure},
    {"paintbrush", "Art", Group::leisure},
    {"phone", "Call", Group::practical},
    {"envelope", "Mail", Group::practical},
    {"calendar", "Event", Group::practical},
    {"clock", "Reminder", Group::practical},
    {"hourglass", "Deadline", Group::practical},
    {"wrench.and.screwdriver", "Repair", Group::practical},
    {"lock", "Security", Group::practical},
    {"key", "Passwords", Group::practical},
    {"lightbulb", "Idea", Group::practical},
    {"star", "Favourite", Group::practical},
    {"flag", "Flag", Group::practical},
    {"exclamationmark.triangle", "Important", Group::practical},
});

}  // namespace

std::span<const FolderColor> allFolderColors() {
    return colors;
}

std::string_view rawValue(FolderColor color) {
    switch (color) {
        case FolderColor::red:
            return "red";
        case FolderColor::orange:
            return "orange";
        case FolderColor::yellow:
            return "yellow";
        case FolderColor::green:
            return "green";
        case FolderColor::teal:
            return "teal";
        case FolderColor::blue:
            return "blue";
        case FolderColor::indigo:
            return "indigo";
        case FolderColor::purple:
            return "purple";
        case FolderColor::pink:
            return "pink";
        case FolderColor::brown:
            return "brown";
        case FolderColor::gray:
            return "gray";
    }
    return {};
}

std::optional<FolderColor> folderColor(std::string_view rawValue) {
    const auto found = std::find_if(colors.begin(), colors.end(),
                                    [&](FolderColor color) { return vesk::rawValue(color) == rawValue; });
    if (found == colors.end()) return {};
    return *found;
}

std::string displayName(FolderColor color) {
    std::string name(rawValue(color));
    name.front() = static_cast<char>(name.front() - 'a' + 'A');
    return name;
}

FilePath VaultStyle::fileURL(const Vault& vault) {
    return vault.supportDirectory() / "style.json";
}

VaultStyle VaultStyle::load(const Vault& vault) {
    VaultStyle style;
    try {
        const Json json = Json::parse(FilePlatform::current().files->read(fileURL(vault), {}));
        const auto* found = json.find(colorsKey);
        const auto* entries = found ? found->asObject() : nullptr;
        if (!entries) return {};
        for (const auto& [folder, color] : *entries) {
            const auto* text = color.asString();
            if (!text) return {};
            style.folderColors.insert_or_assign(folder, *text);
        }
    } catch (const Error&) {
        return {};
    }
    return style;
}

void VaultStyle::save(const Vault& vault) const {
    vault.ensureSupportDirectory();
    Json entries = Json::object({});
    for (const auto& [folder, color] : folderColors) entries.set(folder, color);
    Json json = Json::object({});
    json.set(std::string(colorsKey), std::move(entries));
    AtomicWrite::writeData(fileURL(vault), json.dump());
}

std::optional<FolderColor> VaultStyle::color(const std::string& folder) const {
    const auto found = folderColors.find(folder);
    if (found == folderColors.end()) return {};
    return folderColor(found->second);
}

void VaultStyle::setColor(const std::string& folder, std::optional<FolderColor> color) {
    if (color) {
        folderColors.insert_or_assign(folder, std::string(rawValue(*color)));
    } else {
        folderColors.erase(folder);
    }
}

bool Charm::matches(std::string_view query) const {
    const std::string wanted = lowercased(trimCharacters(query, " \t"));
    if (wanted.empty()) return true;
    return lowercased(label).find(wanted) != std::string::npos ||
           lowercased(id).find(wanted) != std::string::npos;
}

std::span<const Charm> Charm::catalog() {
    return charms;
}

std::vector<Charm> Charm::catalog(Group group) {
    std::vector<Charm> found;
    std::copy_if(charms.begin(), charms.end(), std::back_inserter(found),
                 [&](const Charm& charm) { return charm.group == group; });
    return found;
}

std::span<const Charm::Group> Charm::groups() {
    return groupList;
}

std::string_view rawValue(Charm::Group group) {
    switch (group) {
        case Group::places:
            return "places";
        case Group::home:
            return "home";
        case Group::life:
            return "life";
        case Group::food:
            return "food";
        case Group::health:
            return "health";
        case Group::sport:
            return "sport";
        case Group::work:
            return "work";
        case Group::tech:
            return "tech";
        case Group::leisure:
            return "leisure";
        case Group::practical:
            return "practical";
    }
    return {};
}

std::string_view title(Charm::Group group) {
    switch (group) {
        case Group::places:
            return "Places & travel";
        case Group::home:
            return "Home & personal";
        case Group::life:
            return "Life & occasions";
        case Group::food:
            return "Food & drink";
        case Group::health:
            return "Health";
        case Group::sport:
            return "Sport & fitness";
        case Group::work:
            return "Work & money";
        case Group::tech:
            return "Tech";
        case Group::leisure:
            return "Learning & leisure";
        case Group::practical:
            return "Practical";
    }
    return {};
}

}  // namespace vesk
