#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "app/command_line/cmd_line_syntax_error.h"
#include "async/srw_lock.h"
#include "client/line/line_session.h"
#include "client/line/line_settings.h"
#include "client/line/line_text.h"
#include "client/verbs/client_options.h"
#include "client/verbs/verb_table.h"
#include "console/print.h"
#include "console/utf8.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

// An answer is taken to be complete when the line has been quiet for this long.
constexpr milliseconds kQuietTime(200);

constexpr wchar_t kEol[] = L"eol";
constexpr wchar_t kEscapes[] = L"escapes";

// Collects the bytes of a line.
class answer final : public line_session {
 public:
  // Blocks until something has arrived and the line has then been quiet for `quiet`, or until
  // `limit` has passed; returns the bytes. Throws client_error if the line has ended.
  [[nodiscard]] std::vector<std::byte> wait(milliseconds quiet, milliseconds limit);

  ostra::future<void> received(std::vector<std::byte> bytes) override;

 private:
  using clock = std::chrono::steady_clock;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::vector<std::byte> bytes_;
  clock::time_point last_;  // when bytes last arrived
};

std::vector<std::byte> answer::wait(milliseconds quiet, milliseconds limit) {
  const auto deadline = clock::now() + limit;
  const auto left = [&] {
    throw_failure();
    const std::lock_guard guard(lock_);
    const auto end = bytes_.empty() ? deadline : std::min(deadline, last_ + quiet);
    return milliseconds_until(end);
  };
  static_cast<void>(wait_out(nullptr, left));
  const std::lock_guard guard(lock_);
  return std::exchange(bytes_, {});
}

ostra::future<void> answer::received(std::vector<std::byte> bytes) {
  {
    const std::lock_guard guard(lock_);
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    last_ = clock::now();
  }
  notify();
  co_return;
}

// The byte that an escape stands for. `rest` begins after the backslash and moves past the escape.
std::optional<std::byte> take_escape(std::wstring_view& rest) {
  constexpr std::pair<wchar_t, char> kLetters[] = {
      {L'r', '\r'}, {L'n', '\n'}, {L't', '\t'}, {L'\\', '\\'}};
  constexpr std::wstring_view kDigits = L"0123456789abcdef0123456789ABCDEF";
  const wchar_t letter = rest.empty() ? L'\0' : rest.front();
  const auto* const known = std::ranges::find(kLetters, letter, &std::pair<wchar_t, char>::first);
  if (known != std::end(kLetters)) {
    rest.remove_prefix(1);
    return std::byte(known->second);
  }
  if (letter != L'x' || rest.size() < 3)
    return std::nullopt;
  const auto high = kDigits.find(rest[1]);
  const auto low = kDigits.find(rest[2]);
  if (high == kDigits.npos || low == kDigits.npos)
    return std::nullopt;
  rest.remove_prefix(3);
  return static_cast<std::byte>(high % 16 * 16 + low % 16);
}

std::vector<std::byte> unescaped(std::wstring_view text) {
  std::vector<std::byte> bytes;
  for (auto rest = text; !rest.empty();) {
    const auto plain = console::to_utf8(rest.substr(0, rest.find(L'\\')));
    bytes.insert(bytes.end(), plain.begin(), plain.end());
    rest.remove_prefix(std::min(rest.find(L'\\'), rest.size()));
    if (rest.empty())
      break;
    rest.remove_prefix(1);
    const auto byte = take_escape(rest);
    if (!byte)
      throw Tamrin::cmd_line_syntax_error("Invalid escape specified.", text,
                                          L"\\r, \\n, \\t, \\\\ or \\xNN");
    bytes.push_back(*byte);
  }
  return bytes;
}

}  // namespace

std::vector<std::byte> message_of(const invocation& request) {
  const std::wstring_view text = request.arguments[2];
  auto bytes = request.options.at(kEscapes).flag() ? unescaped(text) : console::to_utf8(text);
  for (const char character : parse_line_end(request.options.at(kEol).text(), true))
    bytes.push_back(std::byte(character));
  return bytes;
}

void add_send_options(Tamrin::command_line& line) {
  auto& eol = line.add_valued(kEol);
  eol.value_name = L"EOL";
  eol.default_value = std::wstring_view(L"none");
  eol.description = L"Send this after TEXT: none, cr, lf or crlf. Default value is none.";
  line.add_flag(kEscapes).description =
      L"In TEXT, \\r, \\n, \\t, \\\\ and \\xNN stand for the bytes that they name; \\x22 is a "
      L"double quote.";
  add_timeout_option(line);
  add_line_options(line);
}

void send_text(const invocation& request) {
  // The whole command line is checked before anything happens.
  const line_address address = address_of(request);
  const auto limit = waiting_limit_of(request.options);
  auto message = message_of(request);

  answer collected;
  remote_line port(address);
  port.start(collected, 0);
  port.write(std::move(message)).get();
  port.drained().get();

  const std::wstring text = console::from_utf8(collected.wait(kQuietTime, limit));
  if (text.empty()) {
    const auto count = static_cast<std::uint32_t>(limit.count());
    console::print(console::standard_stream::error,
                   tfmt::format(L"{0} sent nothing within {1} ms\n", port.name(), count));
    return;
  }
  print_result(text + L"\n");
}

}  // namespace tarnwheel::client
