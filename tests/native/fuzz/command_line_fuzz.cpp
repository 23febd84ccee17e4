// Command lines and the wrapping of the help. The input's first byte is the console's width, the
// rest both a command line and the description of an option.
#include <algorithm>

#include "app/command_line/command_line_help.h"
#include "app/options.h"
#include "fuzz.h"

namespace {

using namespace Tamrin;

void parse(const std::wstring& text) {
  command_line line;
  add_server_options(line);
  try {
    line.parse(text);
    fuzz::require(line.completed());
    for (const auto& token : line.positional())
      fuzz::require(!token.starts_with(L'-'));
    const auto options = read_server_options(line);
    fuzz::require(std::ranges::is_sorted(options.shared_ports));
    fuzz::require(options.log_level >= 0 && options.log_level <= 4);
  } catch (const cmd_line_syntax_error&) {
    // The one way to refuse a line.
  }
}

}  // namespace

void fuzz::run(input bytes) {
  if (bytes.empty())
    return;
  const auto text = wide(bytes.subspan(1));
  parse(text);
  command_line line;
  line.add_valued(L"option").description = text;
  std::wstring help = format_help(line, bytes[0]);
  std::wstring expected = L"--option" + text;
  for (std::wstring* each : {&help, &expected})
    std::erase_if(*each, [](wchar_t unit) { return unit == L' ' || unit == L'\n'; });
  require(help == expected);
}
