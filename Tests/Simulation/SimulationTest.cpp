// Random histories of a vault: whatever happens, no typed text is lost and none that others brought.
//
// The ordinary run plays a few thousand short histories. VESK_SIMULATION_STEPS=10000000 plays on until so
// many steps are done, in stories of VESK_SIMULATION_LENGTH steps from VESK_SIMULATION_SEED on, and ends
// after VESK_SIMULATION_FAULTS faults.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Simulation/Story.h"
#include "Support/Scratch.h"

namespace vesk::simulation {
namespace {

constexpr int ordinaryStories = 2000, usualLength = 40;

std::uint64_t setting(const char* name, std::uint64_t usual) {
    const char* given = std::getenv(name);
    return given && *given ? std::strtoull(given, nullptr, 10) : usual;
}

TEST(Simulation, LosesNoTextInAnyHistory) {
    const test::ScratchFolder folder;
    const std::uint64_t steps = setting("VESK_SIMULATION_STEPS", ordinaryStories * usualLength);
    const int mostFaults = static_cast<int>(setting("VESK_SIMULATION_FAULTS", 1));
    const int length = static_cast<int>(setting("VESK_SIMULATION_LENGTH", usualLength));
    std::uint64_t done = 0, calls = 0;
    int faults = 0;
    for (std::uint64_t seed = setting("VESK_SIMULATION_SEED", 1); done < steps && faults < mostFaults;
         ++seed) {
        const auto story = storyOf(seed, length);
        const auto run = play(story, folder.path().native());
        done += story.actions.size();
        calls += run.calls;
        if (!run.fault) continue;
        ++faults;
        const auto shorter = shrunk(story, [&](const Story& candidate) {
            return play(candidate, folder.path().native()).fault.has_value();
        });
        const auto last = play(shorter, folder.path().native(), true);
        ADD_FAILURE() << "seed " << seed << ": " << *run.fault << "\n"
                      << rowOf(shorter) << "\n"
                      << last.fault.value_or("(not in the shorter story)");
    }
    std::printf("%llu steps, %llu file-system calls\n", static_cast<unsigned long long>(done),
                static_cast<unsigned long long>(calls));
}

struct Row {
    const char* name;
    Story story;
};

// Each of these once broke the promise.
TEST(Simulation, KeepsThePromiseWhereItWasOnceBroken) {
    const Row rows[] = {
        {"a crash while text is put into the held-text store leaves half a file there",
         {{.devices = 1},
          {{Do::fillVault, 1},
           {Do::type},
           {Do::crashSoon},
           {Do::rename},
           {Do::type, 1},
           {Do::wait, 8},
           {Do::crashSoon, 2, 1},
           {Do::rename, 1, 2}}}},
        {"text held for a note that was moved is saved at its new place, where the note is open with other "
         "text",
         {{.devices = 1},
          {{Do::move, 0, 1},
           {Do::type},
           {Do::fillVault, 1},
           {Do::localMove, 0, 2},
           {Do::wait, 1},
           {Do::select},
           {Do::type},
           {Do::select, 1},
           {Do::type},
           {Do::wait, 3}}}},
        {"a save fails only on its way to stable storage, and the next one meets its text as another's",
         {{.devices = 1}, {{Do::failSoon, 3, 1}, {Do::type}, {Do::wait, 8}, {Do::type}}}},
        {"a rename fails only on its way to stable storage, and the note is looked for at its old name",
         {{.devices = 1}, {{Do::trash}, {Do::type}, {Do::failSoon, 5, 1}, {Do::rename}, {Do::type}}}},
        {"a note is renamed to the place of one that went while it was shown, whose text overwrites it",
         {{.devices = 1},
          {{Do::fillVault, 1},
           {Do::type, 1},
           {Do::select},
           {Do::intrude, 0, 4},
           {Do::rename},
           {Do::rename}}}},
        {"a save fails late, another program edits the file, and the held text overwrites that when it is "
         "left",
         {{.devices = 1},
          {{Do::failSoon, 3, 1}, {Do::type}, {Do::wait, 16}, {Do::intrude}, {Do::wait, 17}, {Do::select}}}},
        {"two texts are held for notes that came to one place, and both become its recovered copy",
         {{.devices = 1},
          {{Do::localDelete, 1},
           {Do::type},
           {Do::rename, 0, 3},
           {Do::localMove},
           {Do::type},
           {Do::fillVault, 1},
           {Do::select},
           {Do::type},
           {Do::rename, 0, 3},
           {Do::localMove}}}},
        {"the shown note follows a move to a place whose former note has unsaved text, which its save lets "
         "go",
         {{.devices = 1},
          {{Do::fillVault, 1},
           {Do::intrude, 4, 3},
           {Do::select, 1},
           {Do::type},
           {Do::select},
           {Do::localMove, 0, 1},
           {Do::fillVault},
           {Do::type},
           {Do::wait, 8},
           {Do::type}}}},
        {"Try Again saves and merges a text that is saved once more at the end of typing, as another's",
         {{.devices = 1},
          {{Do::fillVault, 1},
           {Do::type, 5},
           {Do::intrude, 0, 5},
           {Do::wait, 8},
           {Do::fillVault},
           {Do::type},
           {Do::retry},
           {Do::type}}}},
        {"a save that keeps both fails late, and the next one keeps its text as another's",
         {{.devices = 1, .hasExchange = false},
          {{Do::create, 5},
           {Do::deviceCreate, 6},
           {Do::fillVault, 1},
           {Do::type},
           {Do::select},
           {Do::fillVault},
           {Do::sync},
           {Do::failSoon, 7, 1},
           {Do::intrude},
           {Do::select, 4},
           {Do::type}}}},
        {"a recovered copy takes the place of the shown note, which went, and the shown text overwrites it",
         {{.devices = 1},
          {{Do::fillVault, 2},
           {Do::type},
           {Do::intrude, 3, 19},
           {Do::wait, 8},
           {Do::select},
           {Do::type, 5},
           {Do::type, 6},
           {Do::rename},
           {Do::localDelete}}}},
        {"held text makes way for a note that comes to its place, and is saved over it when the person "
         "leaves",
         {{.devices = 1},
          {{Do::fillVault, 1},
           {Do::select, 1},
           {Do::type},
           {Do::select},
           {Do::type},
           {Do::wait, 30},
           {Do::localDelete, 1},
           {Do::localMove, 0, 1},
           {Do::wait, 8},
           {Do::fillVault},
           {Do::quit}}}},
        {"text that makes way gets a name that a former copy had, and follows that copy to where it went",
         {{.devices = 1},
          {{Do::fillVault, 1},
           {Do::select, 2},
           {Do::type},
           {Do::select, 1},
           {Do::type},
           {Do::select},
           {Do::type},
           {Do::wait, 30},
           {Do::localDelete, 1},
           {Do::localMove, 0, 1},
           {Do::wait, 8},
           {Do::fillVault},
           {Do::type},
           {Do::wait, 30},
           {Do::fillVault, 1},
           {Do::type},
           {Do::wait, 30},
           {Do::localMove},
           {Do::wait, 8},
           {Do::select, 2},
           {Do::wait, 22},
           {Do::localDelete, 1},
           {Do::localMove, 1, 1},
           {Do::wait, 8},
           {Do::fillVault},
           {Do::type},
           {Do::wait, 8}}}},
        {"a note that was just saved is shown while a sync service brings an old version and the saved one "
         "again",
         {{.devices = 1},
          {{Do::deviceEdit, 3},
           {Do::type, 1},
           {Do::intrude},
           {Do::select},
           {Do::sync, 2},
           {Do::deliverAgain},
           {Do::select, 2}}}},
        {"what comes out when a text is put back can't be read, and the note is taken for an empty one",
         {{.devices = 1},
          {{Do::type, 6},
           {Do::create},
           {Do::trashShown},
           {Do::failSoon, 21},
           {Do::intrude, 9},
           {Do::type, 6},
           {Do::activate},
           {Do::type}}}},
        {"a note is edited and moved while it is shown, and the window takes it along with its old text",
         {{.devices = 1, .hasWindow = true}, {{Do::deviceEdit}, {Do::deviceMove, 0, 2}, {Do::select}}}},
        {"the shown note is edited, moved to the place of one that went, and keeps its old text there",
         {{.devices = 1, .hasWindow = true},
          {{Do::localDelete}, {Do::select, 1}, {Do::localEdit, 1}, {Do::localMove, 1}}}},
        {"a note gets back the name that it lost in an earlier run, and the index forgets it",
         {{.devices = 1, .hasIndex = true},
          {{Do::trash}, {Do::rename, 1}, {Do::quit}, {Do::rename, 1, 2}, {Do::type, 1}, {Do::rename}}}},
        {"a sync service replaces a note and deletes it at once, and the index keeps it",
         {{.devices = 1, .hasIndex = true},
          {{Do::deviceEdit, 6}, {Do::sync}, {Do::wait, 1}, {Do::deviceDelete, 6}}}},
        {"a note is moved by another program right after its save, and the index keeps its old path",
         {{.devices = 1, .hasIndex = true}, {{Do::type}, {Do::wait, 8}, {Do::localMove, 0, 2}}}},
        {"a conflict copy stands though its write failed late, and the index never hears of it",
         {{.devices = 1, .hasIndex = true},
          {{Do::type, 2}, {Do::failSoon, 8, 1}, {Do::intrude, 5}, {Do::wait, 8}}}},
        {"a save gives way to another's text, the one saved before comes back, and the editor never hears of "
         "it",
         {{.devices = 1},
          {{Do::deviceTrash, 3},
           {Do::deviceEdit},
           {Do::type},
           {Do::goOnline},
           {Do::typeSoon, 0, 5},
           {Do::wait, 9},
           {Do::deliverAgain},
           {Do::type, 6},
           {Do::activate}}}},
        {"a save finds its text there already, the one saved before comes back, and the editor never hears "
         "of it",
         {{.devices = 1},
          {{Do::goOnline},
           {Do::deviceEdit},
           {Do::sync},
           {Do::typeSoon, 0, 5},
           {Do::select},
           {Do::wait, 4},
           {Do::deliverAgain},
           {Do::type, 6},
           {Do::activate}}}},
    };
    const test::ScratchFolder folder;
    for (const auto& row : rows) {
        const auto run = play(row.story, folder.path().native());
        EXPECT_FALSE(run.fault) << row.name << ": " << *run.fault;
    }
}

}  // namespace
}  // namespace vesk::simulation
