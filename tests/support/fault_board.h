// What a program built with the fault seam shares with the test that makes its calls fail.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace system_test {

constexpr std::size_t kMaxFaultPoints = 64;
constexpr std::int32_t kNoFault = -1;

// Lies in a named section; the program fills in the names before its main function begins. Each
// field is written by one side and read by the other, `countdown` by both.
struct FaultBoard {
  std::array<std::array<char, 48>, kMaxFaultPoints> names;
  std::atomic<std::uint32_t> points;  // how many there are; 0 until the names are complete

  std::atomic<std::int32_t> point;      // the one whose calls are counted, or kNoFault
  std::atomic<std::int32_t> countdown;  // the call that brings it to 0 fails
  std::atomic<std::uint32_t> failures;  // calls that have been made to fail
  std::atomic<std::uint32_t> error;     // what they fail with; 0: they block until point changes

  // What the program has allocated and not freed yet.
  std::atomic<std::int64_t> live_blocks;
};

static_assert(std::atomic<std::int64_t>::is_always_lock_free, "shared between processes");

inline std::wstring FaultBoardName(std::uint32_t process_id) {
  return L"Local\\tarnwheel_fault_board_" + std::to_wstring(process_id);
}

}  // namespace system_test
