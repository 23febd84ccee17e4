// The skeleton of a session on a line.
#pragma once

#include <chrono>
#include <initializer_list>
#include <optional>

#include "async/srw_lock.h"
#include "client/line/remote_line.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {

// One thread serves the session: it waits for its signals, and for news that pool threads leave for
// it. How it handles them is up to the derived class.
class line_session : public line_receiver {
 public:
  // Any thread.
  void changed(std::uint32_t) override {}
  void ended(const client_error& reason) override { fail(reason); }

 protected:
  line_session();
  ~line_session() = default;

  // Any thread. A failure is news too; only the first one is kept.
  void notify() const noexcept { ::SetEvent(news_.get()); }
  void fail(const client_error& reason);

  [[nodiscard]] std::optional<client_error> failure() const;
  [[nodiscard]] std::optional<client_error> take_failure();
  void throw_failure() const;

  // An auto-reset event, signalled when there is news.
  [[nodiscard]] HANDLE news() const noexcept { return news_.get(); }

  // Returns the first of these that is signalled, null if none is within `limit` milliseconds.
  static HANDLE wait_for(std::initializer_list<HANDLE> signals, DWORD limit = INFINITE);

  // Waits until `left`, which is called again after any news, returns 0 milliseconds. False if
  // `stop`, unless null, is signalled first.
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

  // For wait_out(): 0 once `end` has passed.
  static DWORD milliseconds_until(std::chrono::steady_clock::time_point end);

 private:
  const Tamrin::unique_handle news_;

  mutable ostra::srw_lock lock_;
  std::optional<client_error> failure_;  // guarded by lock_
};

}  // namespace tarnwheel::client
