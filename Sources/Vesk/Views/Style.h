// The application's own style sheet and icons.
#pragma once

namespace vesk::views {

/// Once, when the display is open.
void installStyle();

}  // namespace vesk::views
