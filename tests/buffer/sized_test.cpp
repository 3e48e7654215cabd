// Length-prefixed data and UTF-16 strings: the wire format, the reads back,
// and the failures of an item that does not fit its limit or destination.
#include "guarded.h"

#include <gtest/gtest.h>

#include <tov.h>

#include <cstring>
#include <vector>

using codectest::Guarded;
using codectest::kFill;
using Bytes = std::vector<uint8_t>;

namespace {

// Lays out raw bytes in a guarded buffer of exactly their size.
Guarded holding(const Bytes &content, size_t extra = 0) {
  Guarded g(content.size() + extra);
  std::memcpy(g.begin(), content.data(), content.size());
  return g;
}

constexpr uint8_t kUnset = 0x5A;

} // namespace

TEST(BufSizedData, WritesPrefixAndBytesAndHandsOutAPointerOnRead) {
  const uint8_t item[] = {0xAA, 0xBB, 0xCC};
  struct Case {
    uint64_t length;
    Bytes wire;
  } const cases[] = {
      {3, {0x03, 0, 0, 0, 0xAA, 0xBB, 0xCC}},
      {0, {0, 0, 0, 0}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.length);
    Guarded g(c.wire.size());
    uint8_t *cursor = g.begin();
    ASSERT_EQ(TOV_OK, TOV_BufPutSizedData(&cursor, g.limit(), c.length, item));
    EXPECT_EQ(g.limit(), cursor);
    EXPECT_EQ(c.wire, g.bytes(0, c.wire.size()));
    EXPECT_TRUE(g.guardsIntact());

    uint64_t length = 99;
    uint8_t *data = nullptr;
    cursor = g.begin();
    ASSERT_EQ(TOV_OK, TOV_BufGetSizedData(&cursor, g.limit(), &length, &data));
    EXPECT_EQ(c.length, length);
    EXPECT_EQ(g.begin() + 4, data); // inside the buffer, nothing copied
    EXPECT_EQ(g.limit(), cursor);
  }
}

TEST(BufSizedData, ReadThatDoesNotFitReportsTheAnnouncedLengthOnly) {
  struct Case {
    const char *name;
    Bytes content;
    uint64_t length; // what the call reports, or the unset pattern
  } const cases[] = {
      {"prefix cut short", {0x03, 0, 0}, 0x5A5A5A5A5A5A5A5A},
      {"100 announced, 50 there",
       [] {
         Bytes b(54, 0x11);
         b[0] = 100, b[1] = b[2] = b[3] = 0;
         return b;
       }(),
       100},
      {"largest prefix", {0xFF, 0xFF, 0xFF, 0xFF, 1, 2}, 0xFFFFFFFF},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    Guarded g = holding(c.content);
    const Bytes before = g.all();
    uint8_t *cursor = g.begin();
    uint64_t length;
    std::memset(&length, kUnset, sizeof length);
    uint8_t *const sentinel = g.begin() - 1;
    uint8_t *data = sentinel;
    EXPECT_EQ(TOV_ERR_BUFFER_END, TOV_BufGetSizedData(&cursor, g.limit(), &length, &data));
    EXPECT_EQ(c.length, length);
    EXPECT_EQ(sentinel, data);
    EXPECT_EQ(g.begin(), cursor);
    EXPECT_EQ(before, g.all());
  }
}

TEST(BufUniStr, WritesUnitsAndTerminatorAfterAByteCount) {
  struct Case {
    const char *name;
    const wchar_t *text;
    Bytes wire;
  } const cases[] = {
      {"one unit", L"A", {0x04, 0, 0, 0, 0x41, 0, 0, 0}},
      {"empty", L"", {0x02, 0, 0, 0, 0, 0}},
      // Units travel as they are: a pair and a lone surrogate alike.
      {"beyond ASCII",
       L"\u00e9\xD83D\xDE00\xDC00",
       {0x0A, 0, 0, 0, 0xE9, 0x00, 0x3D, 0xD8, 0x00, 0xDE, 0x00, 0xDC, 0, 0}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    Guarded g(c.wire.size());
    uint8_t *cursor = g.begin();
    ASSERT_EQ(TOV_OK, TOV_BufPutUniStr(&cursor, g.limit(), c.text));
    EXPECT_EQ(g.limit(), cursor);
    EXPECT_EQ(c.wire, g.bytes(0, c.wire.size()));
    EXPECT_TRUE(g.guardsIntact());

    // Read into a destination of exactly the item's size: the writer's
    // terminator comes with it.
    const size_t units = (c.wire.size() - 4) / 2;
    std::vector<wchar_t> text(units + 1, L'#');
    cursor = g.begin();
    ASSERT_EQ(TOV_OK, TOV_BufGetUniStr(&cursor, g.limit(), text.data(), 2 * units));
    EXPECT_EQ(g.limit(), cursor);
    EXPECT_EQ(0, std::wcscmp(c.text, text.data()));
    EXPECT_EQ(L'#', text[units]); // nothing written past the item
  }
}

TEST(BufUniStr, OddLengthItemCopiesWholeUnitsAndStopsBeforeTheLastByte) {
  Guarded g = holding({0x05, 0, 0, 0, 0x41, 0x00, 0x42, 0x00, 0x43});
  wchar_t text[4] = {L'#', L'#', L'#', L'#'};
  uint8_t *cursor = g.begin();
  ASSERT_EQ(TOV_OK, TOV_BufGetUniStr(&cursor, g.limit(), text, sizeof text));
  EXPECT_EQ(g.begin() + 8, cursor);
  EXPECT_EQ(L'A', text[0]);
  EXPECT_EQ(L'B', text[1]);
  EXPECT_EQ(L'#', text[2]);
}

// The destination's size is judged before the limit: a caller with too small
// a destination hears so even when the item is cut short too.
TEST(BufUniStr, ReadFailuresLeaveCursorAndDestinationAlone) {
  const Bytes oneUnit = {0x04, 0, 0, 0, 0x41, 0, 0, 0};
  Bytes hundred(54, 0x41);
  hundred[0] = 100, hundred[1] = hundred[2] = hundred[3] = 0;
  const Bytes largest = {0xFF, 0xFF, 0xFF, 0xFF, 0x41, 0};
  struct Case {
    const char *name;
    Bytes content;
    uint64_t size;
    TOV_Status expected;
  } const cases[] = {
      {"prefix cut short", {0x04, 0, 0}, 64, TOV_ERR_BUFFER_END},
      {"destination of 2 for 4", oneUnit, 2, TOV_ERR_BUFFER_TOO_SMALL},
      {"100 announced, 50 there, room 100", hundred, 100, TOV_ERR_BUFFER_END},
      {"100 announced, 50 there, room 99", hundred, 99, TOV_ERR_BUFFER_TOO_SMALL},
      {"largest prefix, any room", largest, ~uint64_t{0}, TOV_ERR_BUFFER_END},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    Guarded g = holding(c.content);
    const Bytes before = g.all();
    wchar_t text[64];
    std::memset(text, kUnset, sizeof text);
    uint8_t *cursor = g.begin();
    EXPECT_EQ(c.expected, TOV_BufGetUniStr(&cursor, g.limit(), text, c.size));
    EXPECT_EQ(g.begin(), cursor);
    EXPECT_EQ(before, g.all());
    for (wchar_t w : text) EXPECT_EQ(0x5A5A, w);
  }
}
