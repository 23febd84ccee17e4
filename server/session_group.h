// Limits the number of clients, and tells which are still there when the server stops.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <vector>

#include "async/auto_reset_event.h"
#include "async/future.h"
#include "async/srw_lock.h"

namespace tarnwheel {

// Every pipe instance that listens takes a place, which passes to the session of the client that
// connects. Any thread may use it.
class session_group : public std::enable_shared_from_this<session_group> {
 public:
  // One place, which the destructor frees.
  class place {
   public:
    place(std::shared_ptr<session_group> group, std::size_t index) noexcept;
    place(place&&) noexcept = default;
    place& operator=(place&& other) noexcept;
    ~place();

    // Records that the session holds COM`number`; 0: no port.
    void set_port(std::uint32_t number) noexcept;

   private:
    void leave() noexcept;

    std::shared_ptr<session_group> group_;  // null when moved from
    std::size_t index_;
  };

  // Throws hresult_error.
  explicit session_group(std::size_t places);

  // Reduces the number of places. Called before other threads use the group, while none of the
  // places that go is taken.
  void limit_to(std::size_t places) { ports_.resize(places); }

  // A free place, or nothing when there is none or the group is closed.
  [[nodiscard]] std::optional<place> try_take() noexcept;

  // Completes with the next place that becomes free; waiters are served in order. Fails with
  // operation_cancelled once the group is closed.
  [[nodiscard]] ostra::future<place> take();

  // Gives out no more places; pending take() calls fail.
  void close() noexcept;

  // Completes with true when all places are free, or with false when none has become free for
  // `limit`. One call at a time, after close().
  [[nodiscard]] ostra::future<bool> departed(ostra::ticks limit);

  // The ports of the current sessions; 0 for a session without one.
  [[nodiscard]] std::vector<std::uint32_t> ports() const;

 private:
  static constexpr std::int64_t kFree = -1;

  void leave(std::size_t index) noexcept;
  [[nodiscard]] std::optional<place> take_free() noexcept;
  [[nodiscard]] bool is_empty() const noexcept;

  ostra::auto_reset_event left_;  // set by each place that becomes free once closed

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  std::vector<std::int64_t> ports_;  // by place: the port's number, 0 for none, or kFree
  std::list<ostra::promise<place>> waiting_;
  bool closed_ = false;
};

}  // namespace tarnwheel
