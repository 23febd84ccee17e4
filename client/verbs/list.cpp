#include "client/line/server_connection.h"
#include "client/verbs/client_options.h"
#include "client/verbs/json.h"
#include "client/verbs/verb_table.h"
#include "console/print.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using port_list = std::vector<tether::port_record>;

// A device's name is the device's to choose: "\x1B" for a control character.
std::wstring printable(std::wstring_view name) {
  std::wstring text;
  for (const wchar_t unit : name) {
    const bool controls = unit < L' ' || (unit >= 0x7F && unit < 0xA0);
    text += controls ? tfmt::format(L"\\x{0w2arf0b16X}", static_cast<std::uint32_t>(unit))
                     : std::wstring(1, unit);
  }
  return text;
}

std::wstring lines(const port_list& ports) {
  std::wstring lines;
  for (const tether::port_record& port : ports)
    lines += tfmt::format(L"{0}\t{1}\n", port_name(port.number), printable(port.friendly_name));
  return lines;
}

std::wstring json(const port_list& ports) {
  json_array array;
  for (const tether::port_record& port : ports)
    array.add({{L"port", port_name(port.number)}, {L"name", port.friendly_name}});
  return array.text();
}

}  // namespace

void add_list_options(Tamrin::command_line& line) {
  add_json_option(line);
}

void list_ports(const invocation& request) {
  server_connection server(server_of(request));
  const auto ports = server.wait(server.remote().EnumeratePorts(), server.display_name());
  const bool as_json = request.options.at(kJsonOption).flag();
  print_result(as_json ? json(ports) : lines(ports));
}

}  // namespace tarnwheel::client
