// A small window with a field and a list under it: the quick switcher, the command palette, the choice of a
// folder.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

struct PickerItem {
    std::string id, title, detail;
    std::string key;  ///< accelerator as GTK writes it; shown at the right
    std::string icon;
};

/// One at a time; goes by itself when something was chosen, with Escape, or when it loses the keyboard.
class Picker {
public:
    using Matches = std::function<std::vector<PickerItem>(const std::string& typed)>;
    /// `chosen` is called with the item's id and what was typed, after the window has gone.
    static void show(GtkWindow* parent, const std::string& title, const std::string& placeholder,
                     Matches matches,
                     std::function<void(const std::string& id, const std::string& typed)> chosen);
};

}  // namespace vesk::views
