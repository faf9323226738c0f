// What wakes a pass that refreshes the vault, and what that decides. Pure; any thread.
#pragma once

#include <array>
#include <string_view>

namespace vesk {

enum class SyncTrigger { foreground, adopt, pull, poll, presenter, metadata };

inline constexpr std::array<SyncTrigger, 6> allSyncTriggers = {
    SyncTrigger::foreground, SyncTrigger::adopt,     SyncTrigger::pull,
    SyncTrigger::poll,       SyncTrigger::presenter, SyncTrigger::metadata};

/// Who asked: what the application does by itself gives way when the user leaves.
enum class AskClass { user, automatic };

/// Which files a pass asks the provider for.
enum class DownloadAsk {
    nothing,
    staleOnly,       ///< those whose older copy is here
    everythingOwed,  ///< all whose current bytes aren't
};

/// The case's name.
std::string_view rawValue(SyncTrigger trigger);
/// Which of two requests names the pass that serves both.
int strength(SyncTrigger trigger);
AskClass askClass(SyncTrigger trigger);
/// Runs also while the application is in the back.
bool runsOutOfFront(SyncTrigger trigger);
/// The provider's own word that something changed.
bool isPush(SyncTrigger trigger);
DownloadAsk downloads(SyncTrigger trigger);
DownloadAsk documentDownloads(SyncTrigger trigger);

}  // namespace vesk
