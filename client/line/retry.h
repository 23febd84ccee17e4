// --retry: reconnecting, for verbs that stay connected.
#pragma once

#include <chrono>
#include <functional>
#include <string_view>

#include "app/command_line/command_line.h"
#include "client/line/client_error.h"
#include "console/interrupt.h"

namespace tarnwheel::client {

void add_retry_option(Tamrin::command_line& line);

// The time between one attempt and the next: each pause is twice as long as the one before, up to a
// limit. A session that has held for longer than that limit starts again with the shortest.
class growing_pause {
 public:
  static constexpr std::chrono::milliseconds kShortest{250};
  static constexpr std::chrono::milliseconds kLongest{8000};

  // The pause after a session that has held for `held`, zero when none was reached.
  [[nodiscard]] std::chrono::milliseconds next(std::chrono::milliseconds held) noexcept;

 private:
  std::chrono::milliseconds next_ = kShortest;
};

// Runs sessions on the thread that calls run().
class attempts {
 public:
  // Blocks for the pause, which may be zero; true when the user wants no further attempt.
  using pause_function = std::function<bool(std::chrono::milliseconds)>;

  // Tries again when the parsed options have --retry, until `stop` is signalled, which must outlive
  // this.
  attempts(const Tamrin::command_line& options, const console::interrupt& stop);

  // `hint`, if any, says with the wait how the user ends it.
  attempts(const Tamrin::command_line& options, pause_function pause, std::wstring_view hint = {});

  // Runs `session` until it returns. After a failure that may pass, runs it again, and says once
  // that it waits; without --retry throws the failure. Returns when the user wants no more, which
  // is the cause of any failure then.
  void run(const std::function<void()>& session);

  // To be called by the session once it has its line; reports that `what` is back if run() had
  // reported that it waits.
  void reached(std::wstring_view what);

 private:
  using clock = std::chrono::steady_clock;

  // False when the user wants no more.
  [[nodiscard]] bool wait_after(const client_error& error);

  const bool again_;
  const pause_function pause_function_;
  const std::wstring hint_;
  growing_pause pauses_;
  bool waiting_ = false;
  clock::time_point reached_ = clock::time_point::max();  // max: not in this session
};

}  // namespace tarnwheel::client
