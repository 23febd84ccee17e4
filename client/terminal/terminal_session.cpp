#include "client/terminal/terminal_session.h"

#include <algorithm>
#include <utility>

#include "console/utf8.h"

namespace tarnwheel::client {
namespace {

constexpr std::wstring_view kCtrlC = L"\x03";

// UTF-16 units that wait while the line takes none; further keys are dropped.
constexpr std::size_t kMaxTyped = 1024 * 1024;

bool begins_pair(wchar_t unit) {
  return IS_HIGH_SURROGATE(unit);
}

}  // namespace

void terminal_session::run(HANDLE keys, const console::interrupt& stop) {
  line_.start(*this, 0);
  while (serve(keys, stop)) {
  }
  line_.hang_up();
  const auto failed = failure();
  if (failed)
    screen_.show({}).wait();  // after everything received
  screen_.close();
  commands_.finish();
  file_.finish();
  if (sending_.valid())
    sending_.wait();
  if (failed)
    throw *failed;
}

// Waits for one signal and handles it; false if that ends the session.
bool terminal_session::serve(HANDLE keys, const console::interrupt& stop) {
  const HANDLE signalled = wait_for({stop.event(), news(), stop.ctrl_c(), keys});
  if (signalled == stop.event())
    return false;
  if (signalled == keys)
    return read_keys(keys);
  const bool stays = signalled == news() || handle_key(kCtrlC);
  send_typed();
  return stays && !failure();
}

bool terminal_session::read_keys(HANDLE keys) {
  const auto struck = client::read_keys(keys);
  if (!struck)
    return false;  // the console has gone
  const bool stays =
      std::ranges::all_of(*struck, [this](const auto& text) { return handle_key(text); });
  send_typed();
  return stays;
}

bool terminal_session::handle_key(std::wstring_view text) {
  if (file_.is_asking()) {
    file_.handle_key(text);
    return true;
  }
  const key_command command = command_keys_.feed(text);
  if (command == key_command::send && typed_.size() < kMaxTyped)
    typed_ += text == L"\r" ? std::wstring(settings_.newline.begin(), settings_.newline.end())
                            : std::wstring(text);
  else if (command == key_command::send_file)
    file_.toggle();
  else if (command == key_command::show_keys)
    screen_.note(command_keys::help());
  else
    commands_.run(command);
  return command != key_command::leave;
}

void terminal_session::send_typed() {
  const bool half = !typed_.empty() && begins_pair(typed_.back());
  const std::size_t size = typed_.size() - (half ? 1 : 0);
  if (file_.is_named() && has_room_.exchange(false))
    return file_.start();
  if (size == 0 || !has_room_.exchange(false))
    return;
  auto bytes = console::to_utf8(std::wstring_view(typed_).substr(0, size));
  typed_.erase(0, size);
  if (settings_.echo)
    screen_.echo(bytes);
  if (sending_.valid())
    sending_.wait();  // it has made room, so it is about to complete
  sending_ = send(std::move(bytes));
}

ostra::future<void> terminal_session::send(std::vector<std::byte> bytes) {
  auto room = line_.write(std::move(bytes));
  co_await room;
  take_room();
}

// Any thread. The line takes the next bytes.
void terminal_session::take_room() {
  has_room_ = true;
  notify();
}

ostra::future<void> terminal_session::received(std::vector<std::byte> bytes) {
  if (settings_.stamps)
    bytes = stamper_.convert(bytes);
  if (const auto failure = capture_.add(bytes))
    screen_.note(failure->message());
  if (settings_.inserts_cr)
    bytes = inserter_.convert(bytes);
  return screen_.show(std::move(bytes));
}

}  // namespace tarnwheel::client
