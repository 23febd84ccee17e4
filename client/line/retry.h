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
// limit. A session that has lasted longer than that limit resets the pause to the shortest.
class growing_pause {
 public:
  static constexpr std::chrono::milliseconds kShortest{250};
  static constexpr std::chrono::milliseconds kMaxPause{8000};

  // The pause after a session that has lasted for `held`, zero if it never had its line.
  [[nodiscard]] std::chrono::milliseconds next(std::chrono::milliseconds held) noexcept;

 private:
  std::chrono::milliseconds next_ = kShortest;
};

// Runs sessions on the thread that calls run().
class attempts {
 public:
  // Blocks for the pause, which may be zero; returns true when the user wants no further attempt.
  using pause_function = std::function<bool(std::chrono::milliseconds)>;

  // Tries again if the parsed options have --retry, until `stop` is signalled. `stop` must outlive
  // this.
  attempts(const Tamrin::command_line& options, const console::interrupt& stop);

  // `hint`, if any, is added to the report of the wait and says how the user ends it.
  attempts(const Tamrin::command_line& options, pause_function pause, std::wstring_view hint = {});

  // Runs `session` until it returns. After a failure that may pass, reports once that it is waiting
  // and runs it again; throws any other failure, and without --retry every one. Also returns when
  // the user stops it: a failure is then taken to result from that.
  void run(const std::function<void()>& session);

  // Called by the session once it has its line; reports that `what` is back if run() had reported
  // that it was waiting.
  void reached(std::wstring_view what);

 private:
  using clock = std::chrono::steady_clock;

  // False when the user wants no further attempt. Throws failures that are not to be retried.
  [[nodiscard]] bool wait_after(const client_error& error);

  const bool again_;
  const pause_function pause_function_;
  const std::wstring hint_;
  growing_pause pauses_;
  bool waiting_ = false;
  clock::time_point reached_ = clock::time_point::max();  // max: not yet in this session
};

}  // namespace tarnwheel::client
