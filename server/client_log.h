// The log lines about one client, which contain its account.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "async/auto_reset_event.h"
#include "async/future.h"
#include "async/srw_lock.h"
#include "log/log.h"
#include "rpc/itransport.h"

namespace tarnwheel {

// The name of an account may have to be queried from a domain controller, which can be slow, so no
// request waits for it: it is looked up on a pool thread, once per session, and only when lines
// that contain it are kept. Lines written meanwhile are logged, in order, when the name is known.
//
// Any thread may use it. The look-up shares ownership of it until it ends.
class client_log : public std::enable_shared_from_this<client_log> {
 public:
  // Starts the look-up of the client's account unless it has been started before; the look-up holds
  // `place` until it ends. Called within a request, before its log lines; impersonates the client
  // meanwhile.
  void identify(tether::ITransport& transport, std::shared_ptr<const void> place) noexcept;

  // Logs a line with the arguments {0} the client, {1} `number`, {2} `code`. `pattern` must be a
  // literal.
  void write(logging::level level, std::wstring_view pattern, std::uint32_t number = 0,
             HRESULT code = S_OK) noexcept;

  // True while the client's name is being looked up.
  [[nodiscard]] bool is_looking_up() noexcept;

  // Completes when no line waits for the name any more. After `limit`, waiting lines are logged
  // without it. Throws when it cannot wait.
  [[nodiscard]] ostra::future<void> settle(ostra::ticks limit);

 private:
  enum class state { unasked, asked, answered };

  struct line {
    logging::level level;
    std::wstring_view pattern;
    std::uint32_t number;
    HRESULT code;
  };

  // The most lines that wait for a name; when one more comes, all are logged without it.
  static constexpr std::size_t kMaxWaiting = 64;

  static ostra::future<void> look_up(std::shared_ptr<client_log> self, tether::CToken token,
                                     std::shared_ptr<const void> place);
  void answer(std::wstring name) noexcept;
  bool wait_for_name(const line& next);
  void log(const line& next) const noexcept;
  void log_waiting() noexcept;

  // Guarded by lock_. Lines are logged under it, so that none overtakes another.
  ostra::srw_lock lock_;
  state state_ = state::unasked;
  std::wstring name_ = L"Unknown";
  std::vector<line> waiting_;
  std::optional<ostra::auto_reset_event> answered_;  // set by the answer that settle() waits for
};

}  // namespace tarnwheel
