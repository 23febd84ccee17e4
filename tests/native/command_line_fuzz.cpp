// Command lines and the wrapping of the help. The input's first byte is the console's width, the
// rest both a command line and the description of an option.
#include <algorithm>

#include "app/command_line/command_line_help.h"
#include "app/options.h"
#include "fuzz_input.h"

namespace {

using Tamrin::cmd_line_syntax_error;
using Tamrin::command_line;

// Reads what the server's start reads.
void read_options(const command_line& line) {
  for (const auto* name :
       {Tamrin::option_names::kHelp, Tamrin::option_names::kNoLogo,
        Tamrin::option_names::kNoDiscovery, Tamrin::option_names::kNoScreenLog,
        Tamrin::option_names::kInstallService, Tamrin::option_names::kUninstallService}) {
    fuzz::require(!line.at(name).flag() || line.at(name).present);
  }
  fuzz::require(!line.at(Tamrin::option_names::kSecurityDescriptor).text().empty() ||
                line.at(Tamrin::option_names::kSecurityDescriptor).present);
  const auto options = Tamrin::read_server_options(line);
  fuzz::require(std::ranges::is_sorted(options.shared_ports));
  fuzz::require(options.log_level >= 0 && options.log_level <= 4);
}

void parse(const std::wstring& text) {
  command_line line;
  Tamrin::add_server_options(line);
  try {
    line.parse(text);
    fuzz::require(line.completed());
    for (const auto& token : line.positional())
      fuzz::require(!token.starts_with(L'-'));
    read_options(line);
  } catch (const cmd_line_syntax_error&) {
    // The one way to refuse a line.
  }
}

std::wstring without_blanks(std::wstring text) {
  std::erase_if(text, [](wchar_t unit) { return unit == L' ' || unit == L'\n'; });
  return text;
}

// Wrapping loses nothing but blanks, and adds nothing else.
void wrap(const std::wstring& description, std::size_t width) {
  command_line line;
  line.add_valued(L"option").description = description;
  const auto help = Tamrin::format_help(line, width);
  fuzz::require(help.ends_with(L'\n'));
  fuzz::require(without_blanks(help) == without_blanks(L"--option" + description));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const auto text = fuzz::wide(fuzz::input(data + 1, size - 1));
  parse(text);
  wrap(text, data[0]);
  return 0;
}
