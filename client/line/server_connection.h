// A server that the client is connected to.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "async/errors.h"
#include "async/event.h"
#include "async/within.h"
#include "client/line/client_error.h"
#include "rpc/client_iclient.h"
#include "rpc/connection.h"
#include "rpc/server_iserver.h"

namespace tarnwheel::client {

// For a server's own part in a call, on top of the time that the device may take.
inline constexpr std::chrono::milliseconds kCallLimit(5000);

// Drivers for Bluetooth and for sleeping USB adapters take many seconds to open a port.
inline constexpr std::chrono::milliseconds kOpenLimit(60'000);

// "COM5".
[[nodiscard]] std::wstring port_name(std::uint32_t number);

// Everything throws client_error. Any thread may make calls. Whoever destroys this does so when
// nobody uses it any more, and not from within a call's completion; the server closes the client's
// port then. The destructor waits for the end of the transport's read, two seconds at the most.
class server_connection {
 public:
  // `name` is a computer's name, or "." for this machine. A server whose pipe instances are all
  // taken is asked again for about two seconds.
  explicit server_connection(std::wstring_view name, std::wstring_view pipe = tether::kServerPipe);
  server_connection(const server_connection&) = delete;
  server_connection& operator=(const server_connection&) = delete;
  ~server_connection();

  // The server's name in messages.
  [[nodiscard]] const std::wstring& display_name() const noexcept { return display_name_; }

  // Makes calls, each of which is to be waited for by wait() or answer().
  [[nodiscard]] tether::Client_IClient& remote() noexcept { return connection_->Remote(); }

  // Completes with the call's result, or fails with client_error, in which messages name `subject`
  // as what the call was about. A device error leaves a call without a reply: such a call is given
  // up when its limit has passed, and the connection goes on. A limit of zero is no limit.
  template <class T>
  [[nodiscard]] ostra::future<T> answer(ostra::future<T> call, std::wstring_view subject,
                                        std::chrono::milliseconds limit = kCallLimit) const {
    return explained(std::move(call), display_name_, std::wstring(subject), limit);
  }

  // Blocks until then.
  template <class T>
  T wait(ostra::future<T> call, std::wstring_view subject,
         std::chrono::milliseconds limit = kCallLimit) const {
    return answer(std::move(call), subject, limit).get();
  }

  // Opens COM`number` for this client; blocks, for up to kOpenLimit or until `stop` is signalled,
  // which ends the connection; null is no such signal. A server has no call that closes a port: it
  // closes with the connection, so one connection opens one port. Gives the port's name, such as
  // "COM5".
  std::wstring open_port(std::uint32_t number, HANDLE stop = nullptr);

  // Ends the connection: all calls end inside this one.
  void hang_up() const noexcept;

  // Completes when the connection has ended.
  [[nodiscard]] ostra::future<void> ended() const { return end_->wait(); }

  // The error for a connection that has ended.
  [[nodiscard]] client_error end_of_connection(std::wstring_view subject) const;

 private:
  class hang_up_signal;

  // Its requests, of which a server makes none, are without an implementation here.
  using connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;

  static ostra::future<void> run(std::shared_ptr<connection> connection,
                                 std::shared_ptr<ostra::async_event> end);

  [[nodiscard]] bool lists(std::uint32_t number);

  // Static, since an abandoned call may end later than everything else.
  template <class T>
  static ostra::future<T> explained(ostra::future<T> call, std::wstring server,
                                    std::wstring subject, std::chrono::milliseconds limit) {
    auto limited = ostra::within(std::move(call), limit);
    HRESULT code = S_OK;
    try {
      T result = co_await limited;
      co_return result;
    } catch (const ostra::hresult_error& error) {
      code = error.code();
    }
    throw failure(server, subject, limit, code);
  }

  static client_error failure(std::wstring_view server, std::wstring_view subject,
                              std::chrono::milliseconds limit, HRESULT code);

  // Constant after construction.
  const std::wstring display_name_;
  const std::shared_ptr<connection> connection_;
  const std::shared_ptr<ostra::async_event> end_ = std::make_shared<ostra::async_event>(false);
  ostra::future<void> receiving_;  // may outlive this, on a network that has gone
};

}  // namespace tarnwheel::client
