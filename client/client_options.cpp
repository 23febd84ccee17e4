#include "client/client_options.h"

#include <algorithm>

#include "app/command_line_help.h"
#include "client/line_settings.h"
#include "client/values.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

constexpr wchar_t kTimeout[] = L"timeout";
constexpr std::uint32_t kGreatestTimeout = 24 * 60 * 60 * 1000;  // milliseconds
constexpr std::size_t kHelpWidth = 80;

std::wstring usage_of(const verb& verb) {
  std::wstring words(verb.name);
  for (const auto argument : verb.arguments)
    words += tfmt::format(L" {0}", argument);
  return tfmt::format(L"    {0w28}{1}\n", words, verb.description);
}

}  // namespace

void add_client_options(Tamrin::command_line& line) {
  line.add_flag(kHelpOption, L"?").description = L"Display verbs and options.";
  auto& timeout = line.add_valued(kTimeout);
  timeout.value_name = L"MS";
  timeout.default_value = std::wstring_view(L"2000");
  timeout.description = L"Longest time to wait for what comes back. Default value is 2000.";
  add_line_options(line);
}

std::chrono::milliseconds waiting_limit_of(const Tamrin::command_line& line) {
  return std::chrono::milliseconds(
      parse_number(line.at(kTimeout).text(), "time-out", 1, kGreatestTimeout));
}

const verb& verb_of(const Tamrin::command_line& line) {
  const auto& words = line.positional();
  if (words.empty())
    throw Tamrin::cmd_line_syntax_error("No verb specified.");
  const auto found = std::ranges::find(all_verbs(), words.front(), &verb::name);
  if (found == all_verbs().end())
    throw Tamrin::cmd_line_syntax_error("Invalid verb specified.");
  if (words.size() - 1 != found->arguments.size())
    throw Tamrin::cmd_line_syntax_error("Invalid number of arguments specified.");
  return *found;
}

std::wstring usage(const Tamrin::command_line& line) {
  std::wstring text = L"Usage: tarnwheel-client VERB ARGUMENTS [OPTIONS]\n\n";
  for (const verb& verb : all_verbs())
    text += usage_of(verb);
  text +=
      L"\nSERVER is the name of a computer, or . for this machine; PORT is COM5, say, or 5.\n\n";
  return text + Tamrin::format_help(line, kHelpWidth);
}

}  // namespace tarnwheel::client
