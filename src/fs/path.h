// Path joining as pure string work on caller buffers: no platform call, so
// that it builds and runs on any host.
#pragma once

#include "tov.h"

#include <cstddef>

namespace tov {

// Joins the non-null parts into out[0..size): a backslash goes between two
// unless the text so far ends in one; parts are copied as they stand. A
// result that needs more than size bytes with its terminator gives
// TOV_ERR_PATH_TOO_LONG and leaves out empty (when size > 0). Never writes
// past out + size and never reads a part further than the room left.
TOV_Status joinPath(char *out, size_t size, const char *const *parts, size_t count) noexcept;

} // namespace tov
