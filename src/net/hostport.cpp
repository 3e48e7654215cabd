// Host and port splitting; see hostport.h. Standard C++ only.
#include "net/hostport.h"

#include <cstring>

namespace tov {

uint16_t decimalPort(const char *s) noexcept {
  while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
  const bool negative = *s == '-';
  if (*s == '-' || *s == '+') ++s;
  uint16_t value = 0;
  for (; *s >= '0' && *s <= '9'; ++s) value = static_cast<uint16_t>(value * 10u + (*s - '0'));
  return negative ? static_cast<uint16_t>(0u - value) : value;
}

char *splitHostPort(char *text, uint16_t *port) noexcept {
  *port = 0;
  if (char *close = std::strchr(text, ']')) {
    const char after = close[1];
    *close = '\0';
    if (after == ':' || after == '@') *port = decimalPort(close + 2);
    // "]" first: the host is empty.
    return close == text ? close : text + 1;
  }
  char *separator = std::strrchr(text, '@');
  if (!separator) separator = std::strrchr(text, ':');
  if (!separator) return text;
  *separator = '\0';
  *port = decimalPort(separator + 1);
  return text;
}

} // namespace tov
