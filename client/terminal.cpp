#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

#include "app/command_line/numbers.h"
#include "async/errors.h"
#include "async/srw_lock.h"
#include "client/capture_file.h"
#include "client/line_settings.h"
#include "client/remote_line.h"
#include "client/retry.h"
#include "client/terminal_commands.h"
#include "client/terminal_keys.h"
#include "client/terminal_screen.h"
#include "client/verb.h"
#include "console/interrupt.h"
#include "console/raw_console.h"
#include "console/utf8.h"
#include "format/format.h"
#include "platform/unique_resource.h"

namespace tarnwheel::client {
namespace {

constexpr wchar_t kEcho[] = L"echo";
constexpr wchar_t kHex[] = L"hex";
constexpr wchar_t kLog[] = L"log";

constexpr std::wstring_view kCtrlC = L"\x03";

// Bytes that wait for a line which takes none; more of them are dropped.
constexpr std::size_t kMostTyped = 1024 * 1024;

bool begins_pair(wchar_t unit) {
  return IS_HIGH_SURROGATE(unit);
}

// A line at the console.
class terminal_session final : public line_receiver {
 public:
  // Opens COM`number`; throws client_error. `screen` and `capture` must outlive this.
  terminal_session(std::wstring_view server, std::uint32_t number, terminal_screen& screen,
                   capture_file& capture, bool echo)
      : screen_(screen), capture_(capture), echo_(echo), line_(server, number) {}

  [[nodiscard]] remote_line& line() noexcept { return line_; }

  // Returns when the user leaves or `stop` is signalled; throws client_error.
  void run(HANDLE keys, const console::interrupt& stop);

  ostra::future<void> received(std::vector<std::byte> bytes) override;
  void changed(std::uint32_t) override {}
  void ended(const client_error& reason) override;

 private:
  [[nodiscard]] bool serve(HANDLE keys, const console::interrupt& stop);
  [[nodiscard]] bool read_keys(HANDLE keys);
  [[nodiscard]] bool strike(std::wstring_view text);
  void send_typed();
  ostra::future<void> send(std::vector<std::byte> bytes);
  [[nodiscard]] std::optional<client_error> reason();

  terminal_screen& screen_;
  capture_file& capture_;
  const bool echo_;
  const Tamrin::unique_handle news_{
      ostra::details::check_pointer(::CreateEventW(nullptr, FALSE, FALSE, nullptr))};
  std::atomic<bool> has_room_ = true;  // the line, for the next bytes

  // Used by the thread that runs the session.
  terminal_commands commands_{line_, screen_};
  command_keys command_keys_;
  std::wstring typed_;
  ostra::future<void> sending_;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::optional<client_error> reason_;

  remote_line line_;  // last: it calls this until it has ended
};

void terminal_session::run(HANDLE keys, const console::interrupt& stop) {
  line_.start(*this, 0);
  while (serve(keys, stop)) {
  }
  line_.hang_up();
  const auto failed = reason();
  if (failed)
    screen_.show({}).wait();  // behind everything that has come
  screen_.close();
  commands_.finish();
  if (sending_.valid())
    sending_.wait();
  if (failed)
    throw *failed;
}

// Waits for something and does it; false when that ends the session.
bool terminal_session::serve(HANDLE keys, const console::interrupt& stop) {
  const HANDLE signals[] = {stop.event(), news_.get(), stop.ctrl_c(), keys};
  switch (::WaitForMultipleObjects(4, signals, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
      return false;
    case WAIT_OBJECT_0 + 1:
      send_typed();
      return !reason();
    case WAIT_OBJECT_0 + 2: {
      const bool stays = strike(kCtrlC);
      send_typed();
      return stays;
    }
    default:
      return read_keys(keys);
  }
}

bool terminal_session::read_keys(HANDLE keys) {
  std::array<INPUT_RECORD, 128> records;
  DWORD count = 0;
  if (!::ReadConsoleInputW(keys, records.data(), static_cast<DWORD>(records.size()), &count))
    return false;  // the console has gone
  bool stays = true;
  for (const INPUT_RECORD& record : std::span(records).first(count)) {
    if (record.EventType != KEY_EVENT)
      continue;
    const std::wstring text = text_of(record.Event.KeyEvent);
    for (WORD times = record.Event.KeyEvent.wRepeatCount; stays && times != 0; --times)
      stays = strike(text);
  }
  send_typed();
  return stays;
}

bool terminal_session::strike(std::wstring_view text) {
  if (text.empty())
    return true;
  const key_command command = command_keys_.feed(text);
  if (command == key_command::send && typed_.size() < kMostTyped)
    typed_ += text;
  else if (command == key_command::show_keys)
    screen_.note(command_keys::help());
  else
    commands_.run(command);
  return command != key_command::leave;
}

void terminal_session::send_typed() {
  const bool half = !typed_.empty() && begins_pair(typed_.back());
  const std::size_t size = typed_.size() - (half ? 1 : 0);
  if (size == 0 || !has_room_.exchange(false))
    return;
  auto bytes = console::to_utf8(std::wstring_view(typed_).substr(0, size));
  typed_.erase(0, size);
  if (echo_)
    screen_.echo(bytes);
  sending_ = send(std::move(bytes));
}

ostra::future<void> terminal_session::send(std::vector<std::byte> bytes) {
  auto room = line_.write(std::move(bytes));
  co_await room;
  has_room_ = true;
  ::SetEvent(news_.get());
}

ostra::future<void> terminal_session::received(std::vector<std::byte> bytes) {
  if (const auto failure = capture_.add(bytes))
    screen_.note(failure->message());
  return screen_.show(std::move(bytes));
}

void terminal_session::ended(const client_error& reason) {
  const std::lock_guard guard(lock_);
  reason_ = reason;
  ::SetEvent(news_.get());
}

std::optional<client_error> terminal_session::reason() {
  const std::lock_guard guard(lock_);
  return reason_;
}

std::wstring greeting(const remote_line& line, std::wstring_view server) {
  const std::wstring_view where = server == L"." ? L"this machine" : server;
  return tfmt::format(L"{0} of {1}; Ctrl+] q leaves, Ctrl+] ? shows the keys", line.name(), where);
}

}  // namespace

void add_terminal_options(Tamrin::command_line& line) {
  line.add_flag(kEcho).description = L"Show what is typed, for devices that do not send it back.";
  line.add_flag(kHex).description = L"Show what comes in hexadecimal columns.";
  auto& log = line.add_valued(kLog);
  log.value_name = L"FILE";
  log.default_value = std::wstring_view();
  log.description = L"Add the bytes that come to this file.";
  add_retry_option(line);
  add_line_options(line);
}

void open_terminal(const invocation& request) {
  const Tamrin::command_line& options = request.options;
  const std::uint32_t number = Tamrin::parse_port(request.arguments[1]);
  const line_settings settings = line_settings_of(options);
  const bool echo = options.at(kEcho).flag();
  const bool hex = options.at(kHex).flag();
  if (!console::raw_console::is_there())
    throw client_error(
        L"The terminal needs a console for its keys and its screen; \"pipe\" does "
        L"without",
        ostra::details::to_hresult(ERROR_INVALID_HANDLE), failure::usage);

  capture_file capture(options.at(kLog).text());
  console::interrupt stop;
  attempts sessions(options, stop);
  sessions.run([&] {
    terminal_screen screen(hex ? terminal_screen::view::hex : terminal_screen::view::text);
    terminal_session session(request.arguments[0], number, screen, capture, echo);
    session.line().set_line(settings).get();
    sessions.reached(session.line().name());
    console::raw_console raw(stop);
    screen.note(greeting(session.line(), request.arguments[0]));
    session.run(raw.input(), stop);
  });
}

}  // namespace tarnwheel::client
