// The skeleton of a session on a line.
#pragma once

#include <chrono>
#include <initializer_list>
#include <optional>

#include "async/srw_lock.h"
#include "client/line/remote_line.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {

// One thread serves the session: it waits for its signals, and for the news that the threads of the
// pool leave for it. What it does with them is the derived class's.
class line_session : public line_receiver {
 public:
  // Any thread.
  void changed(std::uint32_t) override {}
  void ended(const client_error& reason) override { fail(reason); }

 protected:
  line_session();
  ~line_session() = default;

  // Any thread. A failure is news; the first one counts.
  void notify() const noexcept { ::SetEvent(news_.get()); }
  void fail(const client_error& reason);

  [[nodiscard]] std::optional<client_error> failure() const;
  [[nodiscard]] std::optional<client_error> take_failure();
  void throw_failure() const;

  // Signalled when there is news; a wait for it resets it.
  [[nodiscard]] HANDLE news() const noexcept { return news_.get(); }

  // Gives the first of these that is signalled, null when none is within `limit` milliseconds.
  static HANDLE wait_for(std::initializer_list<HANDLE> signals, DWORD limit = INFINITE);

  // Waits until `left`, which is asked again after all news, gives 0 milliseconds. False when `stop`,
  // unless null, was signalled before.
  template <class Left>
  [[nodiscard]] bool wait_out(HANDLE stop, Left left) const {
    while (const DWORD time = left()) {
      if (stop == nullptr)
        wait_for({news()}, time);
      else if (wait_for({stop, news()}, time) == stop)
        return false;
    }
    return true;
  }

  // For wait_out: 0 when it has come.
  static DWORD milliseconds_until(std::chrono::steady_clock::time_point end);

 private:
  const Tamrin::unique_handle news_;

  mutable ostra::srw_lock lock_;
  std::optional<client_error> failure_;  // guarded by lock_
};

}  // namespace tarnwheel::client
