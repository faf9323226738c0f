// What the workspace holds as rows of the sidebar, a level at a time.
#pragma once

#include <set>
#include <string>

#include "Vesk/Views/Sidebar.h"
#include "Vesk/Workspace.h"

namespace vesk::views {

/// What the rows show that isn't the workspace's.
struct SidebarState {
    std::optional<std::string>
        draftIn;               ///< where a folder is being named, empty for the top; it stands first
    bool canOrganise = false;  ///< a provider is ready
};

/// The rows below the row of that id, or the top ones for an empty id. Main thread.
Sidebar::Rows sidebarRows(const Workspace& workspace, const std::string& id, const SidebarState& state);
/// The id of the row that shows that a note or document is open, with these rows open.
std::string highlightedRowID(const Workspace& workspace, const std::string& path,
                             const std::set<std::string>& expanded);
std::string folderRowID(std::string_view folder);

}  // namespace vesk::views
