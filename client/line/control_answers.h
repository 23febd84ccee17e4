// Which control codes a device answers.
#pragma once

#include <cstdint>
#include <set>

#include "async/srw_lock.h"

namespace tarnwheel::client {

// A signal has one code for on and one for off, which count as one: a device knows both or neither.
// Any thread. The functions that note something throw std::bad_alloc.
class control_answers {
 public:
  void note_answer(std::uint32_t code);  // also one that comes after note_miss()
  void note_miss(std::uint32_t code);

  [[nodiscard]] bool has_answer(std::uint32_t code) const;

  // True if the device has left the code without an answer and has never answered it.
  [[nodiscard]] bool is_missed(std::uint32_t code) const;

 private:
  // Guarded by lock_. A code is in one of them at most.
  mutable ostra::srw_lock lock_;
  std::set<std::uint32_t> answered_;
  std::set<std::uint32_t> missed_;
};

}  // namespace tarnwheel::client
