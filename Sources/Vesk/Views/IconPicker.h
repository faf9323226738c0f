// The choices of how a note or a folder looks in the list: an icon, a colour.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Vesk/Views/Toolkit.h"
#include "VeskCore/Vault/VaultStyle.h"

namespace vesk::views {

/// A window with the icons by group and a field that narrows them. `chosen` gets a symbol's name, or none
/// to take the icon away, after the window has gone.
void showIconPicker(GtkWindow* parent, const std::optional<std::string>& current,
                    std::function<void(const std::optional<std::string>& symbol)> chosen);

/// A row of colours for a menu. Managed by the widget that it is put into.
Gtk::Widget& colorSwatches(std::optional<FolderColor> current,
                           const std::function<void(std::optional<FolderColor>)>& chosen);

}  // namespace vesk::views
