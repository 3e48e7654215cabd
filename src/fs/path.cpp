// Path joining under a length limit. Pure string work: the directory
// listing builds its search pattern with it and TOV_PathBuild wraps it.
#include "fs/path.h"

namespace tov {

TOV_Status joinPath(char *out, size_t size, const char *const *parts, size_t count) noexcept {
  size_t w = 0;
  for (size_t i = 0; i < count; ++i) {
    const char *part = parts[i];
    if (!part) continue;
    // After the previous part w <= size - 1, so the separator still fits.
    if (w > 0 && out[w - 1] != '\\') out[w++] = '\\';
    // The part and the terminator must fit the room left: look no further.
    const size_t room = size - w;
    size_t length = 0;
    while (length < room && part[length] != '\0') ++length;
    if (length == room) {
      if (size > 0) out[0] = '\0';
      return TOV_ERR_PATH_TOO_LONG;
    }
    for (size_t k = 0; k < length; ++k) out[w + k] = part[k];
    w += length;
  }
  if (size == 0) return TOV_ERR_PATH_TOO_LONG;
  out[w] = '\0';
  return TOV_OK;
}

} // namespace tov
