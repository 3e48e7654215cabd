// What the library frame calls in the stack walk and symbol family.
#pragma once

namespace tov {

// Debug-help clean-up: ends the symbol handler if it was started, unloads the
// debug-help library and forgets its entry points and the tool-help ones, so
// that the next use looks everything up again. Safe when nothing was made.
void debugHelpCleanup() noexcept;

} // namespace tov
