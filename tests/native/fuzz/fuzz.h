// Shared by the fuzzers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

namespace fuzz {

using input = std::span<const std::uint8_t>;

// Each fuzzer's own; called with every input.
void run(input bytes);

// Ends the program, which the fuzzer reports with the input, when something does not hold.
inline void require(bool holds) {
  if (!holds)
    std::abort();
}

// One code unit a byte, so that the fuzzer's changes stay small and its inputs can be read; the
// upper half stands for characters beyond ASCII.
inline std::wstring wide(input bytes) {
  std::wstring text;
  for (const unsigned byte : bytes)
    text.push_back(static_cast<wchar_t>(byte < 0x80 ? byte : 0x2000 + byte));
  return text;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::run({data, size});
  return 0;
}
