// The client's command line: a verb, its arguments and options.
#pragma once

#include <chrono>
#include <string>

#include "app/command_line.h"
#include "client/verb.h"

namespace tarnwheel::client {

inline constexpr wchar_t kHelpOption[] = L"help";

void add_client_options(Tamrin::command_line& line);

// How long `send` and `discover` wait for what comes back. Throws cmd_line_syntax_error.
[[nodiscard]] std::chrono::milliseconds waiting_limit_of(const Tamrin::command_line& line);

// The verb that the parsed command line names. Throws cmd_line_syntax_error when there is none, or
// when it does not have as many arguments as the verb takes.
[[nodiscard]] const verb& verb_of(const Tamrin::command_line& line);

// Verbs and options, for the screen.
[[nodiscard]] std::wstring usage(const Tamrin::command_line& line);

}  // namespace tarnwheel::client
