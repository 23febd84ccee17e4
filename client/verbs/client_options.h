// The client's command line: a verb, its arguments and its options.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "app/command_line/cmd_line_syntax_error.h"
#include "app/command_line/command_line.h"
#include "client/line/remote_line.h"
#include "client/verbs/verb_table.h"

namespace tarnwheel::client {

inline constexpr wchar_t kHelpOption[] = L"help";
inline constexpr wchar_t kJsonOption[] = L"json";
inline constexpr wchar_t kNewlineOption[] = L"newline";

// True for the words that ask for help in place of a verb.
[[nodiscard]] bool asks_for_help(std::wstring_view word) noexcept;

// Throws cmd_line_syntax_error if there is no such verb.
[[nodiscard]] const verb& verb_named(std::wstring_view word);

// Registers the verb's own options and those common to all verbs.
void add_options_of(const verb& verb, Tamrin::command_line& line);

// The arguments after the verb; one in brackets may be missing. Throws cmd_line_syntax_error if
// their number is wrong.
[[nodiscard]] std::span<const std::wstring_view> arguments_of(const verb& verb,
                                                              const Tamrin::command_line& line);

// The verb's SERVER. Throws cmd_line_syntax_error if it is empty.
[[nodiscard]] std::wstring_view server_of(const invocation& request);

// The line given by the verb's SERVER, PORT and options. Throws cmd_line_syntax_error.
[[nodiscard]] line_address address_of(const invocation& request);

// --timeout: the longest wait for an answer. Reading it throws cmd_line_syntax_error.
void add_timeout_option(Tamrin::command_line& line);
[[nodiscard]] std::chrono::milliseconds waiting_limit_of(const Tamrin::command_line& line);

// --map and --timestamps: changes to the received text.
struct text_changes {
  bool inserts_cr = false;
  bool stamps = false;
};
void add_text_options(Tamrin::command_line& line);
[[nodiscard]] text_changes text_changes_of(const Tamrin::command_line& line);

// --json, a flag.
void add_json_option(Tamrin::command_line& line);

// Describes the error, as in: Invalid time-out specified: "0"; expected a number from 1 to 1000.
// Without a line end.
[[nodiscard]] std::wstring mistake_in(const Tamrin::cmd_line_syntax_error& error);

// Prints the result of a verb on standard output; throws client_error if that does not take
// everything.
void print_result(std::wstring_view text);

// Help texts: of all verbs, and of one verb with its registered options.
[[nodiscard]] std::wstring usage();
[[nodiscard]] std::wstring usage_of(const verb& verb, const Tamrin::command_line& line);

}  // namespace tarnwheel::client
