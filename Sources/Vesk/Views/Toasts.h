// Words at the foot of a window: what was done goes by itself, why something wasn't done stays until it is
// read.
#pragma once

#include <string>

#include "Vesk/Views/Toolkit.h"

namespace vesk::views {

/// With all its words: a toast's own title is cut at one line, and with it a reason.
AdwToast* plainToast(const std::string& words);

/// Has assistive technology read the words out at what has the window's keyboard: the toolkit tells nobody
/// that words have come up elsewhere. What is returned takes them back.
std::function<void()> announce(GtkWindow* window, const std::string& words);

/// Stays until it is closed, and is read out by assistive technology.
AdwToast* reasonToast(GtkWindow* window, const std::string& words);

}  // namespace vesk::views
