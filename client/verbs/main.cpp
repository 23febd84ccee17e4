#include <string>
#include <vector>

#include "app/command_line/cmd_line_syntax_error.h"
#include "async/errors.h"
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
  const auto words = Tamrin::split(command_line);
  const bool asked = words.size() == 3 && asks_for_help(words[2]);
  if (!asked)
    options.parse(command_line);
  if (asked || options.at(kHelpOption).flag())
    print_result(usage_of(chosen, options));
  else
    chosen.run({arguments_of(chosen, options), options});
}

// Both report on standard error, since a script reads standard output, and return the exit code.
int report(const Tamrin::cmd_line_syntax_error& error, const verb* chosen) {
  print(standard_stream::error,
        tfmt::format(L"Error: {0}; see \"tarnwheel-client {1?<}{2} {1?>}--help\"\n",
                     mistake_in(error), chosen != nullptr,
                     chosen != nullptr ? chosen->name : std::wstring_view()));
  return static_cast<int>(failure::usage);
}

int report(const client_error& error) {
  print(standard_stream::error, error.message() + L"\n");
  return static_cast<int>(error.kind());
}

int run_command_line(std::wstring_view command_line) {
  const verb* chosen = nullptr;
  try {
    const auto words = Tamrin::split(command_line);
    const std::wstring_view first = words.size() > 1 ? std::wstring_view(words[1]) : L"";
    if (asks_for_help(first)) {
      print_result(usage());
      return 0;
    }
    if (first == L"--version") {
      print_result(L"tarnwheel-client " TARNWHEEL_VERSION L"\n");
      return 0;
    }
    chosen = &verb_named(first);
    run(*chosen, command_line);
    return 0;
  } catch (const Tamrin::cmd_line_syntax_error& error) {
    return report(error, chosen);
  } catch (const client_error& error) {
    return report(error);
  } catch (...) {  // the system has no memory, or no thread, to give
    return report(explain(ostra::details::current_hresult(), L"The client cannot continue", {},
                          failure::local));
  }
}

}  // namespace
}  // namespace tarnwheel::client

int main() {
  // Windows may load further DLLs on its own; it must not take them from the program's folder.
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  return tarnwheel::client::run_command_line(::GetCommandLineW());
}
