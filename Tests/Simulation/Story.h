// A history of a vault that can be told again: what kind of world it plays in, and what happens in it, in
// small steps that stand for themselves, so that any of them can be left out.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vesk::simulation {

enum class Do {
    // The person at the editor
    type,    ///< a: style of the change
    wait,    ///< a: tenths of a second
    select,  ///< a: which note
    flush,
    close,
    create,  ///< a: where
    rename,  ///< a: which note, b: to what
    move,    ///< a: which note, b: to which folder
    trash,   ///< a: which note
    trashShown,
    restore,  ///< a: which one in the trash
    emptyTrash,
    retry,
    dismiss,
    activate,
    quit,  ///< a: what the person answers if asked
    // What befalls the process
    crash,
    crashSoon,    ///< a: at which mutating call from now, b: before, after, or in the middle of a write
    failSoon,     ///< a: at which call from now, b: how
    fillVault,    ///< a: 0 room again, 1 full, 2 read-only
    fillSupport,  ///< a: the same for the device's own data
    intrude,      ///< a: at which call from now, b: what another program does just then
    overflow,     ///< the kernel lost events
    // Another program on this machine
    localEdit,    ///< a: which note, b: style
    localMove,    ///< a: which note, b: where to
    localDelete,  ///< a: which note
    localMoveFolder,
    // Other devices and the service; a: device and note, b: style or place
    deviceEdit,
    deviceCreate,
    deviceMove,
    deviceTrash,
    deviceRestore,
    deviceDelete,
    deviceLook,
    sync,
    deliverAgain,
    evict,
    goOnline,  ///< the service works beside everything else
    goOffline,
    typeSoon,  ///< a: after how many jobs from now, b: style of the change
};

struct Action {
    Do what = Do::wait;
    int a = 0, b = 0;
    bool operator==(const Action&) const = default;
};

struct Shape {
    int devices = 1;
    bool leavesPlaceholders = false;
    bool renamesTheLocalSide = false;
    bool hasExchange = true;
    bool hasIndex = false;
    bool hasWindow = false;  ///< whose list of notes takes the shown one along when others move it
};

struct Story {
    Shape shape;
    std::vector<Action> actions;
};

Story storyOf(std::uint64_t seed, int actions);
/// The shortest story found that still fails by `fails`, by leaving actions out and making numbers small.
Story shrunk(Story story, const std::function<bool(const Story&)>& fails);
/// As a row of a table of stories.
std::string rowOf(const Story& story);
std::string nameOf(Do what);

struct Run {
    std::optional<std::string> fault;  ///< what was broken of the promise
    std::uint64_t calls = 0;           ///< of the process to the file system
};
/// Plays a story in a world of its own. `supportFolder` is a real folder, which the index lies in.
/// With `tells` each step is printed, and each call of the process to the file system.
Run play(const Story& story, const std::string& supportFolder, bool tells = false);

}  // namespace vesk::simulation
