// A server that the client is connected to.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "async/errors.h"
#include "client/time_limit.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/server_iserver.h"

namespace tarnwheel::client {

// For a server's own part in a call, on top of the time that the device may take.
inline constexpr std::chrono::milliseconds kCallLimit(5000);

// Used by one thread, which blocks in its calls; everything throws client_error. The server closes
// the client's port when this ends.
class connected_server {
 public:
  // `name` is a computer's name, or "." for this machine. A server whose pipe instances are all
  // taken is asked again for about two seconds.
  explicit connected_server(std::wstring_view name, std::wstring_view pipe = tether::kServerPipe);
  connected_server(const connected_server&) = delete;
  connected_server& operator=(const connected_server&) = delete;
  ~connected_server();

  // How messages call the server.
  [[nodiscard]] const std::wstring& display_name() const noexcept { return display_name_; }

  // Makes calls, each of which is to be waited for by wait().
  [[nodiscard]] tether::Client_IClient& remote() noexcept { return connection_->Remote(); }

  // Blocks until the call has ended, and gives its result. Messages name `subject` as what it was
  // about. A device error leaves a call without a reply, and such a call ends with its connection
  // only: when the limit has passed, nothing can be called any more.
  template <class T>
  T wait(const ostra::future<T>& call, std::wstring_view subject,
         std::chrono::milliseconds limit = kCallLimit) {
    const time_limit expiry([this] { connection_->Cancel(); }, limit);
    try {
      return call.get();
    } catch (const ostra::hresult_error& error) {
      fail(subject, expiry, limit, error.code());
    }
  }

 private:
  // Its requests, of which a server makes none, are without an implementation here.
  using connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;

  [[noreturn]] void fail(std::wstring_view subject, const time_limit& expiry,
                         std::chrono::milliseconds limit, HRESULT code) const;

  // Constant after construction.
  const std::wstring display_name_;
  const std::shared_ptr<connection> connection_;
  const ostra::future<void> receiving_;
};

}  // namespace tarnwheel::client
