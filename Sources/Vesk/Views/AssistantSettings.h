// The page of the preferences where model providers are set up.
#pragma once

#include <memory>

#include "Vesk/AI/ProviderSettings.h"
#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

/// A new page, for a preferences window to take. It asks for the keys and the servers' states once it is
/// made.
AdwPreferencesPage* makeAssistantSettingsPage(std::shared_ptr<ProviderSettings> settings);
/// The page in a window of its own.
void showAssistantSettings(GtkWindow* parent, std::shared_ptr<ProviderSettings> settings);

}  // namespace vesk::views
