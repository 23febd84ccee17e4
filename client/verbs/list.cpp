#include <algorithm>
#include <chrono>
#include <optional>
#include <span>
#include <vector>

#include "async/background.h"
#include "async/future.h"
#include "client/line/server_connection.h"
#include "client/verbs/client_options.h"
#include "client/verbs/discover.h"
#include "client/verbs/json.h"
#include "client/verbs/verb_table.h"
#include "console/print.h"
#include "format/format.h"
#include "platform/name_less.h"
#include "rpc/discovery_datagram.h"

namespace tarnwheel::client {
namespace {

constexpr wchar_t kAll[] = L"all";
constexpr std::size_t kAskedAtOnce = 32;  // servers, each on a pool thread

using port_list = std::vector<tether::port_record>;

// A device chooses its name freely, so control characters are shown as in "\x1B".
std::wstring printable(std::wstring_view name) {
  std::wstring text;
  for (const wchar_t unit : name) {
    const bool controls = unit < L' ' || (unit >= 0x7F && unit < 0xA0);
    text += controls ? tfmt::format(L"\\x{0w2arf0b16X}", static_cast<std::uint32_t>(unit))
                     : std::wstring(1, unit);
  }
  return text;
}

// The ports of one server or several as they are printed; with several, each row names the server.
class port_table {
 public:
  explicit port_table(bool names_servers) : names_servers_(names_servers) {}

  void add(std::wstring_view server, const port_list& ports);

  [[nodiscard]] const std::wstring& lines() const noexcept { return lines_; }
  [[nodiscard]] std::wstring json() const { return array_.text(); }

 private:
  const bool names_servers_;
  std::wstring lines_;
  json_array array_;
};

void port_table::add(std::wstring_view server, const port_list& ports) {
  for (const tether::port_record& port : ports) {
    const std::wstring name = port_name(port.number);
    lines_ += tfmt::format(L"{0?<}{1}\t{0?>}{2}\t{3}\n", names_servers_, server, name,
                           printable(port.friendly_name));
    if (names_servers_)
      array_.add({{L"server", server}, {L"port", name}, {L"name", port.friendly_name}});
    else
      array_.add({{L"port", name}, {L"name", port.friendly_name}});
  }
}

port_list ports_of(std::wstring_view name) {
  server_connection server(name);
  return server.wait(server.remote().EnumeratePorts(), server.display_name());
}

// On a pool thread, since connecting and waiting block.
ostra::future<port_list> fetch_ports(std::wstring name) {
  ostra::resume_background move;
  co_await move;
  co_return ports_of(name);
}

// Asks all these servers at once. A server that does not list its ports adds no rows but an error:
// `failed` is the latest one, which is still to be printed; earlier ones go to standard error.
void add_ports(port_table& table, std::span<const std::wstring> servers,
               std::optional<client_error>& failed) {
  const std::wstring here = tether::computer_name();
  std::vector<ostra::future<port_list>> lists;
  for (const auto& server : servers)
    lists.push_back(fetch_ports(Tamrin::compare_names(server, here) == CSTR_EQUAL ? L"." : server));
  for (std::size_t i = 0; i < servers.size(); ++i) {
    try {
      table.add(servers[i], lists[i].get());
    } catch (const client_error& error) {
      if (failed)
        console::print(console::standard_stream::error, failed->message() + L"\n");
      failed = error;
    }
  }
}

std::optional<client_error> add_all(port_table& table, std::chrono::milliseconds limit) {
  const found_servers found = find_servers(limit);
  std::optional<client_error> failed;
  if (found.empty())
    failed = no_server_error(limit);
  const std::vector<std::wstring> names(found.names().begin(), found.names().end());
  for (auto rest = std::span(names); !rest.empty();) {
    const auto next = rest.first(std::min(kAskedAtOnce, rest.size()));
    add_ports(table, next, failed);
    rest = rest.subspan(next.size());
  }
  return failed;
}

}  // namespace

void add_list_options(Tamrin::command_line& line) {
  line.add_flag(kAll).description = L"List the ports of all servers that can be found.";
  add_timeout_option(line);
  add_json_option(line);
}

void list_ports(const invocation& request) {
  const bool all = request.options.at(kAll).flag();
  const auto limit = waiting_limit_of(request.options);
  if (all && !request.arguments.empty())
    throw Tamrin::cmd_line_syntax_error("Invalid server specified.", request.arguments[0],
                                        L"none with --all");
  port_table table(all);
  std::optional<client_error> failed;
  if (all)
    failed = add_all(table, limit);
  else
    table.add({}, ports_of(request.arguments.empty() ? L"." : server_of(request)));
  print_result(request.options.at(kJsonOption).flag() ? table.json() : table.lines());
  if (failed)
    throw *failed;
}

}  // namespace tarnwheel::client
