// The bounds on the requests that one connection's peer may have in progress.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "async/auto_reset_event.h"
#include "async/cancellation.h"
#include "async/srw_lock.h"

namespace tether {

// One request's share of the bounds, from its arrival until its reply has been written.
struct RequestCost {
  std::size_t bytes = 0;    // of memory: its arguments, and the output that it asks for
  bool is_serial = false;   // only one such request of a connection runs at a time
  bool is_barrier = false;  // later requests wait until it has ended
};

// Counts the requests in progress. The receive loop consults it before reading a message, and again
// before starting the request, and waits while the request is not admitted. So a peer that sends
// faster than it is served fills the pipe and then has to wait. When nothing is in progress, one
// message is always admitted, however long it is.
//
// Owned by the connection and by every request in progress. Any thread may end a request or call
// count(); everything else is called by the receive loop.
class RequestLoad : public std::enable_shared_from_this<RequestLoad> {
 public:
  // Nothing is admitted while kMaxRequests requests, or requests that take more than kMaxBytes,
  // are in progress.
  static constexpr std::size_t kMaxRequests = 256;
  static constexpr std::size_t kMaxBytes = 8 * 1024 * 1024;

  // One request in progress, which ends with this object. Empty when moved from.
  class Request {
   public:
    Request() noexcept = default;
    Request(std::shared_ptr<RequestLoad> load, const RequestCost& cost) noexcept;
    Request(Request&& other) noexcept = default;
    Request& operator=(Request&& other) = delete;
    ~Request();

   private:
    std::shared_ptr<RequestLoad> load_;
    RequestCost cost_;
  };

  // `cancellation` ends the waits.
  explicit RequestLoad(ostra::cancellation_source cancellation) noexcept;

  [[nodiscard]] Request Begin(const RequestCost& cost) noexcept;

  // An empty cost stands for a message that has not been read yet.
  [[nodiscard]] bool Admits(const RequestCost& cost) const noexcept;

  // Completes with true when `cost` is admitted, with false when no request has ended for `limit`.
  // Fails with operation_cancelled, or with hresult_error when the system cannot create a timer.
  [[nodiscard]] ostra::future<bool> WaitFor(RequestCost cost, ostra::ticks limit);

  [[nodiscard]] std::size_t count() const noexcept;

 private:
  [[nodiscard]] bool admits(const RequestCost& cost) const noexcept;
  [[nodiscard]] bool AdmitsOrAwaits(const RequestCost& cost) noexcept;
  void End(const RequestCost& cost) noexcept;

  const ostra::cancellation_source cancellation_;

  // Created by the first wait, before is_awaited_ is set; few connections ever need it.
  std::optional<ostra::auto_reset_event> ended_;

  // Guarded by lock_. While is_awaited_ is true, the next request to end sets ended_.
  mutable ostra::srw_lock lock_;
  std::size_t requests_ = 0;
  std::size_t bytes_ = 0;
  bool has_serial_ = false;
  bool has_barrier_ = false;
  bool is_awaited_ = false;
};

}  // namespace tether
