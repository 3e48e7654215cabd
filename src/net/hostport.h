// Splitting a host text into host and port. Pure string work with no
// platform call, so that it builds and runs on any system.
#pragma once

#include <cstdint>

namespace tov {

// Splits text in place: writes a terminator after the host, stores the port
// (0 when there is none) in *port and returns the host, which lies inside
// text. Rules:
//  - with a "]" anywhere: the host lies between the first character (the
//    "[") and the first "]"; a ":" or "@" right after that "]" introduces
//    the port, anything else means no port;
//  - otherwise the last "@", or if there is none the last ":", ends the host
//    and introduces the port; with neither, the whole text is the host.
// The port is the decimal number after the separator, reduced to 16 bits.
char *splitHostPort(char *text, uint16_t *port) noexcept;

// The decimal conversion of the port: leading blanks, an optional sign,
// then digits up to the first other character; the value modulo 65536
// (no overflow, whatever the length).
uint16_t decimalPort(const char *text) noexcept;

} // namespace tov
