// The verbs that the client knows.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "app/command_line/command_line.h"

namespace tarnwheel::client {

// The arguments after the verb, as many as it takes, and the values of its options.
struct invocation {
  std::span<const std::wstring_view> arguments;
  const Tamrin::command_line& options;
};

struct verb {
  std::wstring_view name;
  std::vector<std::wstring_view> arguments;  // their names, for the help
  std::wstring_view description;             // one line
  std::wstring_view example;                 // realistic arguments, for the help
  void (*add_options)(Tamrin::command_line& line);
  void (*run)(const invocation&);  // throws client_error and cmd_line_syntax_error
};

[[nodiscard]] std::span<const verb> all_verbs();

// Prints the ports of a server, one per line: COMn, a tab, the friendly name. With --all, each line
// begins with the server's name and a tab.
void add_list_options(Tamrin::command_line& line);
void list_ports(const invocation& request);

// Prints the names of the servers on this machine, in its domain or workgroup and on the local
// link, one per line.
void add_discover_options(Tamrin::command_line& line);
void discover_servers(const invocation& request);

// Sends a text to a port and prints the answer.
void add_send_options(Tamrin::command_line& line);
void send_text(const invocation& request);

// The bytes that `send` sends. Throws cmd_line_syntax_error.
[[nodiscard]] std::vector<std::byte> message_of(const invocation& request);

// Connects a port with standard input and output.
void add_pipe_options(Tamrin::command_line& line);
void pipe_port(const invocation& request);

// Operates a port from the keyboard and the screen.
void add_terminal_options(Tamrin::command_line& line);
void open_terminal(const invocation& request);

// Offers a port to one program at a time until Ctrl+C.
void add_bridge_options(Tamrin::command_line& line);
void bridge_port(const invocation& request);

}  // namespace tarnwheel::client
