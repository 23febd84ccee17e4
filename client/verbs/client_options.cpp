#include "client/verbs/client_options.h"

#include <algorithm>
#include <string>

#include "app/command_line/command_line_help.h"
#include "app/command_line/numbers.h"
#include "async/errors.h"
#include "client/line/client_error.h"
#include "console/print.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

constexpr wchar_t kMap[] = L"map";
constexpr wchar_t kTimestamps[] = L"timestamps";
constexpr wchar_t kTimeout[] = L"timeout";
constexpr std::uint32_t kMaxTimeout = 24 * 60 * 60 * 1000;  // milliseconds
constexpr std::size_t kHelpWidth = 80;

constexpr std::wstring_view kArgumentsHelp =
    L"SERVER is a computer's name, or . for this machine; PORT is COM5, say, or 5.\n";

constexpr std::wstring_view kExitCodes =
    L"Exit codes: 0 success, 1 mistake in the command line, 2 no connection to the\n"
    L"server, 3 port or account refused, 4 failure of the device or no answer in time,\n"
    L"5 failure of this machine: its output, a file, an address that is in use.\n";

std::wstring words_of(const verb& verb) {
  std::wstring words(verb.name);
  for (const auto argument : verb.arguments)
    words += tfmt::format(L" {0}", argument);
  return words;
}

// "list, discover or send".
std::wstring verb_names() {
  std::wstring names;
  for (const verb& verb : all_verbs()) {
    if (!names.empty())
      names += &verb == &all_verbs().back() ? L" or " : L", ";
    names += verb.name;
  }
  return names;
}

}  // namespace

bool asks_for_help(std::wstring_view word) noexcept {
  return word == L"--help" || word == L"-?" || word == L"-h";
}

const verb& verb_named(std::wstring_view word) {
  if (word.empty() || word.starts_with(L'-'))
    throw Tamrin::cmd_line_syntax_error("No verb specified.");
  const auto found = std::ranges::find(all_verbs(), word, &verb::name);
  if (found == all_verbs().end())
    throw Tamrin::cmd_line_syntax_error("Invalid verb specified.", word, verb_names());
  return *found;
}

void add_options_of(const verb& verb, Tamrin::command_line& line) {
  verb.add_options(line);
  auto& help = line.add_flag(kHelpOption, L"?");
  help.description = L"Display this help.";
  help.group_header = L"=== Help ===";
}

std::span<const std::wstring_view> arguments_of(const verb& verb,
                                                const Tamrin::command_line& line) {
  const auto words = std::span(line.positional()).subspan(1);
  const std::size_t most = verb.arguments.size();
  const bool last_is_optional = most != 0 && verb.arguments.back().starts_with(L'[');
  if (words.size() > most || words.size() + (last_is_optional ? 1 : 0) < most)
    throw Tamrin::cmd_line_syntax_error("Invalid number of arguments specified.",
                                        std::to_wstring(words.size()), words_of(verb));
  return words;
}

std::wstring_view server_of(const invocation& request) {
  const std::wstring_view server = request.arguments[0];
  if (server.empty())
    throw Tamrin::cmd_line_syntax_error("Invalid server specified.", server,
                                        L"a computer's name, or . for this machine");
  return server;
}

line_address address_of(const invocation& request) {
  line_address address;
  address.server = server_of(request);
  address.port = Tamrin::parse_port(request.arguments[1]);
  address.settings = line_settings_of(request.options);
  return address;
}

void add_timeout_option(Tamrin::command_line& line) {
  auto& timeout = line.add_valued(kTimeout);
  timeout.value_name = L"MS";
  timeout.default_value = std::wstring_view(L"2000");
  timeout.description = L"Longest time to wait for an answer. Default value is 2000.";
}

std::chrono::milliseconds waiting_limit_of(const Tamrin::command_line& line) {
  return std::chrono::milliseconds(
      Tamrin::parse_number(line.at(kTimeout).text(), "time-out", 1, kMaxTimeout));
}

void add_text_options(Tamrin::command_line& line) {
  auto& map = line.add_valued(kMap);
  map.value_name = L"MAP";
  map.default_value = std::wstring_view(L"none");
  map.description =
      L"lf-crlf shows a CR before each LF received without one. Default value is none.";
  line.add_flag(kTimestamps).description = L"Begin each received line with the time.";
}

text_changes text_changes_of(const Tamrin::command_line& line) {
  const std::wstring_view map = line.at(kMap).text();
  if (map != L"none" && map != L"lf-crlf")
    throw Tamrin::cmd_line_syntax_error("Invalid map specified.", map, L"none or lf-crlf");
  return {map != L"none", line.at(kTimestamps).flag()};
}

void add_json_option(Tamrin::command_line& line) {
  line.add_flag(kJsonOption).description = L"Print one JSON array, for scripts.";
}

std::wstring mistake_in(const Tamrin::cmd_line_syntax_error& error) {
  std::string message = error.what();
  message.erase(message.find_last_not_of('.') + 1);
  std::wstring text(message.begin(), message.end());
  if (error.culprit())
    text += tfmt::format(L": \"{0}\"", *error.culprit());
  if (!error.expected().empty())
    text += tfmt::format(L"; expected {0}", error.expected());
  return text;
}

void print_result(std::wstring_view text) {
  if (const DWORD error = console::print(console::standard_stream::output, text))
    throw explain(ostra::details::to_hresult(error), L"Standard output", {}, failure::local);
}

std::wstring usage() {
  std::wstring text = L"Usage: tarnwheel-client VERB ARGUMENTS [OPTIONS]\n\n";
  for (const verb& verb : all_verbs())
    text += tfmt::format(L"    {0w23}{1}\n", words_of(verb), verb.description);
  text += L"\n\"tarnwheel-client VERB --help\" shows the options of a verb.\n";
  return text.append(kArgumentsHelp).append(kExitCodes);
}

std::wstring usage_of(const verb& verb, const Tamrin::command_line& line) {
  std::wstring text = tfmt::format(L"Usage: tarnwheel-client {0} [OPTIONS]\n\n{1}\n",
                                   words_of(verb), verb.description);
  if (!verb.arguments.empty())
    text += kArgumentsHelp;
  text += L"\n" + Tamrin::format_help(line, kHelpWidth);
  return text +
         tfmt::format(L"\nExample:\n    tarnwheel-client {0} {1}\n", verb.name, verb.example);
}

}  // namespace tarnwheel::client
