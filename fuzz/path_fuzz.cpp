// Path joining with arbitrary parts and output sizes. The output is exactly
// `size` bytes at the end of its heap block and each part ends its own, so
// reading or writing one byte too far is a finding. The join must give what
// the rules give: a backslash between two parts unless the text so far ends
// in one, TOV_ERR_PATH_TOO_LONG (with an empty output) for a result that
// does not fit with its terminator, nothing written after the terminator.
// A part that is not terminated at all is handed over where the join must
// fail on it: it may be read no further than the room left.
#include "fuzz.h"

#include "fs/path.h"

#include <memory>
#include <string>
#include <vector>

using tovfuzz::kCanary;
using tovfuzz::Tail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
  FuzzedDataProvider in(input, size);
  const size_t room = in.ConsumeBool() ? TOV_PATH_MAX : in.ConsumeIntegralInRange<size_t>(0, 600);
  const size_t count = in.ConsumeIntegralInRange<size_t>(0, 6);

  std::vector<std::unique_ptr<Tail>> blocks;
  std::vector<const char *> parts;
  std::string want; // the join so far, by the rules
  bool tooLong = false;
  for (size_t i = 0; i < count; ++i) {
    const int kind = in.ConsumeIntegralInRange(0, 3);
    if (kind == 0) {
      parts.push_back(nullptr);
      continue;
    }
    std::string part;
    if (kind == 1) {
      part = in.ConsumeRandomLengthString(600);
      part.resize(std::strlen(part.c_str()));
    } else {
      // A run of one character, so that short inputs make long parts.
      const size_t n = in.ConsumeIntegralInRange<size_t>(0, 600);
      const char c = in.ConsumeIntegral<char>();
      part.assign(n, c ? c : 'x');
    }
    const size_t at = want.size() + (!want.empty() && want.back() != '\\');
    const bool fails = !tooLong && at + part.size() + 1 > room;
    const bool terminated = kind != 3 || !fails;
    blocks.push_back(std::make_unique<Tail>(part.c_str(), part.size() + terminated));
    parts.push_back(blocks.back()->chars());
    if (tooLong) continue;
    tooLong = fails;
    want.resize(at, '\\');
    want += part;
  }
  tooLong = tooLong || want.size() + 1 > room;

  Tail out(room);
  const TOV_Status status = tov::joinPath(out.chars(), room, parts.data(), parts.size());
  FUZZ_CHECK(status == (tooLong ? TOV_ERR_PATH_TOO_LONG : TOV_OK));
  if (tooLong) {
    FUZZ_CHECK(room == 0 || out.data()[0] == 0);
  } else {
    FUZZ_CHECK(want == out.chars());
    FUZZ_CHECK(out.all(kCanary, want.size() + 1));
  }
  return 0;
}
