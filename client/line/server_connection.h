// The client's connection with a server.
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

// Time limit for the server's own part of a call, on top of the time that the device may take.
inline constexpr std::chrono::milliseconds kCallLimit(5000);

// Drivers for Bluetooth and for sleeping USB adapters take many seconds to open a port.
inline constexpr std::chrono::milliseconds kOpenLimit(60'000);

// "COM5".
[[nodiscard]] std::wstring port_name(std::uint32_t number);

// Failures are thrown as client_error. Any thread may make calls. Destroy this only when nothing
// uses it any more, and not from within a call's completion; the server then closes the client's
// port. The destructor waits up to two seconds for the transport's read to end.
class server_connection {
 public:
  // `name` is a computer's name, or "." for this machine. If all pipe instances of the server are
  // taken, the constructor keeps trying for about two seconds.
  explicit server_connection(std::wstring_view name, std::wstring_view pipe = tether::kServerPipe);
  server_connection(const server_connection&) = delete;
  server_connection& operator=(const server_connection&) = delete;
  ~server_connection();

  // The server's name in messages.
  [[nodiscard]] const std::wstring& display_name() const noexcept { return display_name_; }

  // Makes calls; wait for each with wait() or answer().
  [[nodiscard]] tether::Client_IClient& remote() noexcept { return connection_->Remote(); }

  // Completes with the call's result, or fails with client_error, whose message names `subject` as
  // the subject of the call. A device error leaves a call without a reply: such a call is abandoned
  // when its limit has passed, and the connection goes on. A limit of zero is no limit.
  template <class T>
  [[nodiscard]] ostra::future<T> answer(ostra::future<T> call, std::wstring_view subject,
                                        std::chrono::milliseconds limit = kCallLimit) const {
    return explained(std::move(call), display_name_, std::wstring(subject), limit);
  }

  // As answer(), but blocks.
  template <class T>
  T wait(ostra::future<T> call, std::wstring_view subject,
         std::chrono::milliseconds limit = kCallLimit) const {
    return answer(std::move(call), subject, limit).get();
  }

  // Opens COM`number` for this client and returns the port's name, such as "COM5". Blocks for up to
  // kOpenLimit or until `stop`, unless null, is signalled, which ends the connection. A server has
  // no call that closes a port, which closes with the connection: one connection opens one port.
  std::wstring open_port(std::uint32_t number, HANDLE stop = nullptr);

  // Ends the connection: all pending calls complete inside this function.
  void hang_up() const noexcept;

  // Completes when the connection has ended.
  [[nodiscard]] ostra::future<void> ended() const { return end_->wait(); }

  // The error for a connection that has ended.
  [[nodiscard]] client_error end_of_connection(std::wstring_view subject) const;

 private:
  class hang_up_signal;

  // Requests from the server have no implementation here, since a server makes none.
  using connection = tether::Connection<tether::Client_IClient, tether::Server_IServer>;

  static ostra::future<void> run(std::shared_ptr<connection> connection,
                                 std::shared_ptr<ostra::async_event> end);

  [[nodiscard]] bool lists(std::uint32_t number);

  // Static, since an abandoned call may complete after this is destroyed.
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
  ostra::future<void> receiving_;  // may outlive this if the network has gone
};

}  // namespace tarnwheel::client
