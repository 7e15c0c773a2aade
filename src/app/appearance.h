#pragma once

namespace app {

// The window's look: the Fusion style in dark colours, so that sheets, menus and buttons
// sit with the black preview and footer whatever the desktop's theme is.
void applyDarkAppearance();

}  // namespace app
