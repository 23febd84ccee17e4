#include <string>
#include <vector>

#include "app/command_line/cmd_line_syntax_error.h"
#include "client/line/client_error.h"
#include "client/verbs/client_options.h"
#include "console/print.h"
#include "format/format.h"
#include "platform/win32.h"

namespace tarnwheel::client {
namespace {

using console::print;
using console::standard_stream;

void run(const verb& chosen, std::wstring_view command_line) {
  Tamrin::command_line options;
  add_options_of(chosen, options);
  options.parse(command_line);
  if (options.at(kHelpOption).flag())
    print(standard_stream::output, usage_of(chosen, options));
  else
    chosen.run({arguments_of(chosen, options), options});
}

// On standard error: a script reads standard output.
void report(const Tamrin::cmd_line_syntax_error& error, const verb* chosen) {
  const std::string message = error.what();
  print(standard_stream::error,
        tfmt::format(L"Error: {0}\n\"tarnwheel-client {1?<}{2} {1?>}--help\" shows what can be "
                     L"asked for.\n",
                     std::wstring(message.begin(), message.end()), chosen != nullptr,
                     chosen != nullptr ? chosen->name : std::wstring_view()));
}

int run_command_line(std::wstring_view command_line) {
  const verb* chosen = nullptr;
  try {
    const auto words = Tamrin::split(command_line);
    const std::wstring_view first = words.size() > 1 ? std::wstring_view(words[1]) : L"";
    if (asks_for_help(first)) {
      print(standard_stream::output, usage());
      return 0;
    }
    chosen = &verb_named(first);
    run(*chosen, command_line);
    return 0;
  } catch (const Tamrin::cmd_line_syntax_error& error) {
    report(error, chosen);
    return static_cast<int>(failure::usage);
  } catch (const client_error& error) {
    print(standard_stream::error, error.message() + L"\n");
    return static_cast<int>(error.kind());
  }
}

}  // namespace
}  // namespace tarnwheel::client

int main() {
  return tarnwheel::client::run_command_line(::GetCommandLineW());
}
