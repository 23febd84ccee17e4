#include <span>
#include <string>

#include "app/cmd_line_syntax_error.h"
#include "client/client_error.h"
#include "client/client_options.h"
#include "log/console.h"
#include "platform/win32.h"

namespace tarnwheel::client {
namespace {

using logging::print;
using logging::standard_stream;

constexpr int kFailure = 1;

void run(const Tamrin::command_line& options) {
  if (options.at(kHelpOption).flag()) {
    print(standard_stream::output, usage(options));
    return;
  }
  const verb& chosen = verb_of(options);
  chosen.run({std::span(options.positional()).subspan(1), options});
}

int run_command_line() {
  Tamrin::command_line options;
  add_client_options(options);
  try {
    options.parse(::GetCommandLineW());
    run(options);
    return 0;
  } catch (const Tamrin::cmd_line_syntax_error& error) {
    print(standard_stream::output, usage(options) + L"\n");
    const std::string message = error.what();
    print(standard_stream::error,
          L"Error: " + std::wstring(message.begin(), message.end()) + L"\n");
  } catch (const client_error& error) {
    print(standard_stream::error, error.message() + L"\n");
  }
  return kFailure;
}

}  // namespace
}  // namespace tarnwheel::client

int main() {
  return tarnwheel::client::run_command_line();
}
