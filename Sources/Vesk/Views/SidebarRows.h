// What the workspace holds as rows of the sidebar, a level at a time.
#pragma once

#include <string>

#include "Vesk/Views/Sidebar.h"
#include "Vesk/Workspace.h"

namespace vesk::views {

/// The rows below the row of that id, or the top ones for an empty id. A folder that is being named stands
/// first among those of `draftIn`, its folder to be. Main thread.
Sidebar::Rows sidebarRows(const Workspace& workspace, const std::string& id,
                          const std::optional<std::string>& draftIn = {});
std::string folderRowID(std::string_view folder);

}  // namespace vesk::views
