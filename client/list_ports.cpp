#include "client/connected_server.h"
#include "client/verb.h"
#include "format/format.h"
#include "log/console.h"

namespace tarnwheel::client {

void list_ports(const invocation& request) {
  connected_server server(request.arguments[0]);
  const auto ports = server.wait(server.remote().EnumeratePorts(), server.display_name());
  std::wstring lines;
  for (const tether::port_record& port : ports) {
    lines += tfmt::format(L"COM{0}\t{1}\n", port.number, port.friendly_name);
  }
  logging::print(logging::standard_stream::output, lines);
}

}  // namespace tarnwheel::client
