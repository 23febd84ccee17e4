#include <chrono>

#include "async/errors.h"
#include "client/line/line_settings.h"
#include "client/line/line_text.h"
#include "client/line/retry.h"
#include "client/terminal/terminal_keys.h"
#include "client/terminal/terminal_session.h"
#include "client/verbs/client_options.h"
#include "console/interrupt.h"
#include "console/raw_console.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

constexpr wchar_t kEcho[] = L"echo";
constexpr wchar_t kHex[] = L"hex";
constexpr wchar_t kLog[] = L"log";

terminal_settings settings_of(const Tamrin::command_line& options, const line_address& address) {
  const auto changes = text_changes_of(options);
  if (options.at(kHex).flag() && (changes.inserts_cr || changes.stamps))
    throw Tamrin::cmd_line_syntax_error("Invalid combination of options specified.", kHex,
                                        L"it without --map and --timestamps");
  return {options.at(kEcho).flag(), parse_line_end(options.at(kNewlineOption).text(), false),
          changes.inserts_cr, changes.stamps, short_form_of(address.settings.control)};
}

std::wstring greeting(const remote_line& line, std::wstring_view server) {
  const std::wstring_view where = server == L"." ? L"this machine" : server;
  return tfmt::format(L"{0} of {1}; Ctrl+] q leaves, Ctrl+] ? shows the keys", line.name(), where);
}

}  // namespace

void add_terminal_options(Tamrin::command_line& line) {
  line.add_flag(kEcho).description = L"Show typed text, for devices that do not echo it.";
  line.add_flag(kHex).description = L"Show received bytes in hexadecimal columns.";
  auto& newline = line.add_valued(kNewlineOption);
  newline.value_name = L"EOL";
  newline.default_value = std::wstring_view(L"cr");
  newline.description = L"Send this for Enter: cr, lf or crlf. Default value is cr.";
  add_text_options(line);
  auto& log = line.add_valued(kLog);
  log.value_name = L"FILE";
  log.default_value = std::wstring_view();
  log.description = L"Append the received bytes to this file.";
  add_retry_option(line);
  add_line_options(line);
}

void open_terminal(const invocation& request) {
  const Tamrin::command_line& options = request.options;
  line_address address = address_of(request);
  const terminal_settings settings = settings_of(options, address);
  const bool hex = options.at(kHex).flag();
  if (!console::raw_console::is_there())
    throw client_error(
        L"The terminal needs a console for its keys and its screen; \"pipe\" does without",
        ostra::details::to_hresult(ERROR_INVALID_HANDLE), failure::usage);

  capture_file capture(options.at(kLog).text());
  console::interrupt stop;
  address.stop = stop.event();
  leave_key leave(::GetStdHandle(STD_INPUT_HANDLE), stop);
  attempts sessions(
      options, [&leave](std::chrono::milliseconds time) { return leave.wait(time); },
      L", Ctrl+] q leaves");
  sessions.run([&] {
    terminal_screen screen(hex ? terminal_screen::view::hex : terminal_screen::view::text);
    terminal_session session(address, screen, capture, settings);
    sessions.reached(session.line().name());
    console::raw_console raw(stop);
    screen.note(greeting(session.line(), address.server));
    session.run(raw.input(), stop);
  });
}

}  // namespace tarnwheel::client
