// Command lines and the wrapping of the help. The input's first byte is the console's width, the
// rest both a command line and the description of an option.
#include <algorithm>

#include "app/command_line/command_line_help.h"
#include "app/options.h"
#include "fuzz.h"

namespace {

using Tamrin::command_line;

void parse(const std::wstring& text) {
  command_line line;
  Tamrin::add_server_options(line);
  try {
    line.parse(text);
    fuzz::require(line.completed());
    for (const auto& token : line.positional())
      fuzz::require(!token.starts_with(L'-'));
    const auto options = Tamrin::read_server_options(line);
    fuzz::require(std::ranges::is_sorted(options.shared_ports));
    fuzz::require(options.log_level >= 0 && options.log_level <= 4);
  } catch (const Tamrin::cmd_line_syntax_error&) {
    // The one way to refuse a line.
  }
}

std::wstring without_blanks(std::wstring text) {
  std::erase_if(text, [](wchar_t unit) { return unit == L' ' || unit == L'\n'; });
  return text;
}

}  // namespace

void fuzz::run(input bytes) {
  if (bytes.empty())
    return;
  const auto text = wide(bytes.subspan(1));
  parse(text);
  command_line line;
  line.add_valued(L"option").description = text;
  const auto help = Tamrin::format_help(line, bytes[0]);
  require(without_blanks(help) == without_blanks(L"--option" + text));
}
