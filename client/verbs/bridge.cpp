#include <chrono>
#include <memory>
#include <string>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/numbers.h"
#include "client/bridge/bridge.h"
#include "client/line/line_settings.h"
#include "client/line/retry.h"
#include "client/streams/com_listener.h"
#include "client/streams/pipe_listener.h"
#include "client/streams/tcp_listener.h"
#include "client/verbs/client_options.h"
#include "console/interrupt.h"
#include "console/print.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using console::print;
using console::standard_stream;

constexpr wchar_t kListen[] = L"listen";
constexpr wchar_t kPipe[] = L"pipe";
constexpr wchar_t kCom[] = L"com";
constexpr wchar_t kRaw[] = L"raw";
constexpr wchar_t kRelease[] = L"release";
constexpr wchar_t kKeepSettings[] = L"keep-settings";
constexpr wchar_t kIdleTimeout[] = L"idle-timeout";
constexpr std::uint32_t kMaxIdleTimeout = 24 * 60 * 60;  // seconds

bridge_options options_of(const invocation& request) {
  const auto& options = request.options;
  if (options.at(kListen).present + options.at(kPipe).present + options.at(kCom).present != 1)
    throw Tamrin::cmd_line_syntax_error("Exactly one of --listen, --pipe and --com is required.");
  if (options.at(kCom).present && options.at(kIdleTimeout).present)
    throw Tamrin::cmd_line_syntax_error("--idle-timeout cannot be used with --com.");
  if (options.at(kPipe).present && options.at(kPipe).text().empty())
    throw Tamrin::cmd_line_syntax_error("Invalid pipe name specified.", L"",
                                        L"a name such as lab_line");
  bridge_options result;
  result.line = address_of(request);
  result.telnet = options.at(kListen).present && !options.at(kRaw).flag();
  result.device = options.at(kCom).present;
  result.releases = options.at(kRelease).flag();
  result.keeps_settings = options.at(kKeepSettings).flag();
  if (options.at(kIdleTimeout).present)
    result.idle_limit = std::chrono::seconds(
        Tamrin::parse_number(options.at(kIdleTimeout).text(), "idle time-out", 1, kMaxIdleTimeout));
  return result;
}

std::unique_ptr<stream_listener> listen(const invocation& request) {
  const auto& options = request.options;
  if (options.at(kPipe).present)
    return listen_pipe(options.at(kPipe).text());
  if (options.at(kCom).present)
    return listen_com(options.at(kCom).text(), options.at(kRelease).flag());
  const tcp_address address = parse_tcp_address(options.at(kListen).text());
  auto listener = listen_tcp(address);
  if (!is_loopback(address))
    print(standard_stream::error,
          tfmt::format(L"Warning: every program that can reach {0} can use the port; there is no "
                       L"password\n",
                       listener->address()));
  return listener;
}

}  // namespace

void add_bridge_options(Tamrin::command_line& line) {
  auto& listen = line.add_valued(kListen);
  listen.value_name = L"[ADDRESS:]TCPPORT";
  listen.description =
      L"Offer the port to one program at a time over Telnet (RFC 2217), on this machine's loopback "
      L"unless an address is named. With TCPPORT 0 the system chooses it.";
  auto& pipe = line.add_valued(kPipe);
  pipe.value_name = L"NAME";
  pipe.description = L"Offer the port as the named pipe NAME of this machine instead.";
  auto& com = line.add_valued(kCom);
  com.value_name = L"DEVICE";
  com.description =
      L"Connect the port to the local serial device DEVICE, one end of a virtual null modem, and "
      L"so to the program that opens the other end.";
  line.add_flag(kRaw).description = L"Carry bytes alone over TCP, without Telnet.";
  line.add_flag(kRelease).description = L"Open the port only while a program is connected.";
  line.add_flag(kKeepSettings).description =
      L"Leave the line as the previous program set it, instead of setting it as the options below "
      L"say.";
  auto& idle = line.add_valued(kIdleTimeout);
  idle.value_name = L"SECONDS";
  idle.description = L"Disconnect a program that sends and receives nothing for this long.";
  add_retry_option(line);
  add_line_options(line);
}

void bridge_port(const invocation& request) {
  bridge_options options = options_of(request);
  const console::interrupt stop;
  options.line.stop = stop.event();
  attempts attempts(request.options, stop);
  auto listener = listen(request);
  const std::wstring listening = tfmt::format(L"Listening on {0}\n", listener->address());
  bridge bridge(options, std::move(listener));
  const std::wstring name = port_name(options.line.port);
  bool told = false;
  const auto ready = [&] {
    attempts.reached(name);
    if (!std::exchange(told, true))
      print(standard_stream::output, listening);
  };
  attempts.run([&] { bridge.run(stop.event(), ready); });
}

}  // namespace tarnwheel::client
