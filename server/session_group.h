// Counts the sessions that have not departed, for the stop to wait for.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "async/future.h"
#include "async/srw_lock.h"

namespace tarnwheel {

class session_group : public std::enable_shared_from_this<session_group> {
 public:
  // One session's membership; leaving is the last thing that a session does.
  class membership {
   public:
    explicit membership(std::shared_ptr<session_group> group) noexcept;
    membership(membership&&) noexcept = default;
    membership& operator=(membership&&) = delete;
    ~membership();

   private:
    std::shared_ptr<session_group> group_;
  };

  [[nodiscard]] membership join() { return membership(shared_from_this()); }

  // Completes when no session is left. Called once, when no session joins any more.
  [[nodiscard]] ostra::future<void> departed();

  [[nodiscard]] std::size_t size() const noexcept;

 private:
  void leave() noexcept;

  // Guarded by lock_.
  mutable ostra::srw_lock lock_;
  std::size_t size_ = 0;
  std::optional<ostra::promise<void>> departed_;
};

}  // namespace tarnwheel
