// Host and port splitting of an arbitrary text, whose terminator ends its
// heap block. The split must find the host and port the rules give, change
// no byte but the one terminator it writes, and hand back a host inside the
// text. The port is held against the C library's conversion: its value
// modulo 65536 depends on the last 16 digits only (10^16 is a multiple of
// 2^16), which strtoll reads exactly.
#include "fuzz.h"

#include "net/hostport.h"

#include <string>

using tovfuzz::CString;

namespace {

uint16_t portOf(const char *s) {
  while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
  const bool negative = *s == '-';
  if (*s == '-' || *s == '+') ++s;
  size_t digits = 0;
  while (s[digits] >= '0' && s[digits] <= '9') ++digits;
  const std::string last(s + (digits > 16 ? digits - 16 : 0), s + digits);
  const uint16_t value = uint16_t(std::strtoll(last.c_str(), nullptr, 10));
  return negative ? uint16_t(0 - value) : value;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
  const CString text(input, size);
  const std::string original(text.chars());

  // The rules: a "]" anywhere makes the host what lies between the first
  // character and the first "]", with a port only after ":" or "@" right
  // behind it; else the last "@", or the last ":", ends the host.
  std::string host = original;
  uint16_t port = 0;
  size_t cut = std::string::npos;
  if (const size_t close = original.find(']'); close != std::string::npos) {
    cut = close;
    host = close == 0 ? "" : original.substr(1, close - 1);
    const char after = original.c_str()[close + 1];
    if (after == ':' || after == '@') port = portOf(original.c_str() + close + 2);
  } else {
    cut = original.rfind('@');
    if (cut == std::string::npos) cut = original.rfind(':');
    if (cut != std::string::npos) {
      host = original.substr(0, cut);
      port = portOf(original.c_str() + cut + 1);
    }
  }

  uint16_t gotPort = 0xA5A5;
  const char *got = tov::splitHostPort(text.chars(), &gotPort);
  FUZZ_CHECK(got >= text.chars() && got < text.chars() + text.size());
  FUZZ_CHECK(host == got);
  FUZZ_CHECK(gotPort == port);
  FUZZ_CHECK(tov::decimalPort(original.c_str()) == portOf(original.c_str()));
  // Only the cut became a terminator.
  for (size_t i = 0; i < original.size(); ++i)
    FUZZ_CHECK(text.chars()[i] == (i == cut ? '\0' : original[i]));
  return 0;
}
