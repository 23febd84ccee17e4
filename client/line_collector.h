// The bytes of a line, for a thread that waits for them.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

#include "async/srw_lock.h"
#include "client/remote_line.h"

namespace tarnwheel::client {

// Keeps everything that comes.
class line_collector final : public line_receiver {
 public:
  // Blocks until something has come and the line was then quiet for `quiet`, or until `limit` has
  // passed; gives what has come since the last call. Throws client_error when the line has ended.
  [[nodiscard]] std::vector<std::byte> take_when_quiet(std::chrono::milliseconds quiet,
                                                       std::chrono::milliseconds limit);

  ostra::future<void> received(std::vector<std::byte> bytes) override;
  void changed(std::uint32_t) override {}
  void ended(const client_error& reason) override;

 private:
  using clock = std::chrono::steady_clock;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  ostra::condition_variable news_;
  std::vector<std::byte> bytes_;
  clock::time_point last_ = clock::time_point::max();  // when bytes came
  std::optional<client_error> reason_;
};

}  // namespace tarnwheel::client
