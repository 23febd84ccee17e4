#include "async/auto_reset_event.h"

namespace ostra {

future<bool> auto_reset_event::wait_for(ticks limit) {
  bool is_set = false;
  try {
    auto expiry = timer_.wait(limit);
    co_await expiry;
  } catch (const timer_cancelled&) {
    is_set = true;
  }
  token_.throw_if_cancelled();
  co_return is_set;
}

}  // namespace ostra
