// The assertion dialog's template byte for byte, and its report text kept
// inside the text buffer.
#include "frame/assertion.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The layout field by field, in hex: little-endian integers, UTF-16 strings
// with their terminators. Items: style, extended style, x, y, width, height,
// id, 0xFFFF and the class number; the text; no creation data.
constexpr char kLayout[] =
    "c000c880 00000000 0400 0000 0000 5401 a200 0000 0000 0000 0800" // dialog; 8 points
    " 4d0053002000530061006e0073002000530065007200690066000000 0000" // "MS Sans Serif", padding
    " 01000150 00000000 5300 8d00 3200 0e00 0100 ffff8000"
    " 5400650072006d0069006e006100740065000000 0000" // "Terminate"
    " 00000150 00000000 9000 8d00 3200 0e00 0200 ffff8000"
    " 43006f006e00740069006e00750065000000 0000 0000" // "Continue", padding
    " 00000150 00000000 cd00 8d00 3200 0e00 0300 ffff8000"
    " 440065006200750067000000 0000" // "Debug"
    " 0408b150 00000000 0700 0700 4601 7e00 0400 ffff8100"
    " 0000 0000"; // "", the edit control

TEST(AssertionTemplate, MatchesTheLayoutByteForByte) {
  alignas(4) uint8_t buffer[tov::kTemplateBufferSize];
  std::memset(buffer, 0xA5, sizeof buffer); // padding must be written, not left over
  const size_t n = tov::buildReportTemplate(buffer);
  std::string expected, built;
  for (const char c : kLayout)
    if (c != ' ' && c != '\0') expected += c;
  for (size_t i = 0; i < n; ++i) {
    char hex[3];
    std::snprintf(hex, sizeof hex, "%02x", buffer[i]);
    built += hex;
  }
  EXPECT_EQ(built, expected);
  EXPECT_EQ(buffer[n], 0xA5);
}

TEST(AssertionText, HugeStringsStayInsideTheBuffer) {
  struct {
    char text[tov::kReportTextSize];
    char guard[64];
  } out;
  std::memset(&out, 'G', sizeof out);
  const std::string huge(100000, 'x'), tail = "...\r\nLine: -2147483648\r\n\r\n";
  EXPECT_EQ(tov::formatAssertionText(out.text, huge.c_str(), huge.c_str(), INT_MIN),
            sizeof out.text - 1);
  EXPECT_EQ(std::strlen(out.text), sizeof out.text - 1);
  EXPECT_EQ(std::string(out.text).substr(sizeof out.text - 1 - tail.size()), tail);
  EXPECT_EQ(std::string(out.guard, sizeof out.guard), std::string(sizeof out.guard, 'G'));
}

} // namespace
