#include <chrono>
#include <mutex>
#include <optional>
#include <string_view>

#include "app/command_line/numbers.h"
#include "async/errors.h"
#include "async/srw_lock.h"
#include "client/line/line_session.h"
#include "client/line/line_settings.h"
#include "client/line/line_text.h"
#include "client/line/retry.h"
#include "client/streams/standard_streams.h"
#include "client/verbs/client_options.h"
#include "console/interrupt.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;

constexpr wchar_t kQuiet[] = L"quiet";
constexpr std::uint32_t kMaxQuiet = 24 * 60 * 60 * 1000;  // milliseconds

// One connection between the standard streams and a line.
class pipe_session final : public line_session {
 public:
  // `newline` replaces the line ends of the input, unless it is empty.
  pipe_session(input_stream& input, output_stream& output, milliseconds quiet,
               std::string_view newline, text_changes changes)
      : input_(input), output_(output), quiet_(quiet), changes_(changes) {
    if (!newline.empty())
      line_ends_.emplace(newline);
  }

  // Returns when the input has ended and the line has then been quiet, or when `stop` is signalled.
  // Throws client_error.
  void run(remote_line& line, HANDLE stop);

  ostra::future<void> received(std::vector<std::byte> bytes) override;

 private:
  using clock = std::chrono::steady_clock;

  ostra::future<void> feed(remote_line& line);
  [[nodiscard]] DWORD until_quiet();
  [[nodiscard]] DWORD until_written();

  input_stream& input_;
  output_stream& output_;
  const milliseconds quiet_;
  const text_changes changes_;

  // Used by feed().
  std::optional<line_end_converter> line_ends_;

  // Used by received(), one call at a time.
  time_stamper stamper_;
  cr_inserter inserter_;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  bool all_sent_ = false;
  bool writing_ = false;
  clock::time_point last_ = clock::now();  // when something was last sent or received
};

void pipe_session::run(remote_line& line, HANDLE stop) {
  input_.resume();
  line.start(*this, 0);
  const auto feeding = feed(line);
  const bool ended = wait_out(stop, [this] { return until_quiet(); });
  line.hang_up();
  input_.abandon();
  // Received bytes are still written, unless the user does not want to wait for their reader.
  if (!ended || !wait_out(stop, [this] { return until_written(); }))
    output_.close();
  feeding.wait();
  throw_failure();
}

ostra::future<void> pipe_session::feed(remote_line& line) {
  try {
    for (;;) {
      auto next = input_.read();
      auto bytes = co_await next;
      const bool at_end = bytes.empty();
      if (line_ends_)
        bytes = at_end ? line_ends_->finish() : line_ends_->convert(bytes);
      if (!bytes.empty()) {
        auto room = line.write(std::move(bytes));
        co_await room;
      }
      if (line.has_ended())
        co_return;  // the rest of the input is for the next session
      if (at_end)
        break;
    }
  } catch (const ostra::operation_cancelled&) {
    co_return;
  }
  auto sent = line.drained();
  co_await sent;
  if (input_.error() != ERROR_SUCCESS)
    fail(
        explain(ostra::details::to_hresult(input_.error()), L"Standard input", {}, failure::local));
  const std::lock_guard guard(lock_);
  all_sent_ = true;
  last_ = clock::now();
  notify();
}

ostra::future<void> pipe_session::received(std::vector<std::byte> bytes) {
  {
    const std::lock_guard guard(lock_);
    writing_ = true;
  }
  if (changes_.stamps)
    bytes = stamper_.convert(bytes);
  if (changes_.inserts_cr)
    bytes = inserter_.convert(bytes);
  auto written = output_.write(std::move(bytes));
  co_await written;
  if (output_.error() != ERROR_SUCCESS)
    fail(explain(ostra::details::to_hresult(output_.error()), L"Standard output", {},
                 failure::local));
  const std::lock_guard guard(lock_);
  writing_ = false;
  last_ = clock::now();
  notify();
}

DWORD pipe_session::until_written() {
  const std::lock_guard guard(lock_);
  return writing_ ? INFINITE : 0;
}

// In milliseconds, 0 when the session is over.
DWORD pipe_session::until_quiet() {
  if (failure())
    return 0;
  const std::lock_guard guard(lock_);
  return all_sent_ && !writing_ ? milliseconds_until(last_ + quiet_) : INFINITE;
}

}  // namespace

void add_pipe_options(Tamrin::command_line& line) {
  auto& quiet = line.add_valued(kQuiet);
  quiet.value_name = L"MS";
  quiet.default_value = std::wstring_view(L"200");
  quiet.description =
      L"Exit when the input has ended and nothing has arrived for this long. Default value is 200.";
  auto& newline = line.add_valued(kNewlineOption);
  newline.value_name = L"EOL";
  newline.default_value = std::wstring_view(L"none");
  newline.description =
      L"Send this for each line end of the input: cr, lf or crlf, or none to leave it as it is. "
      L"Default value is none.";
  add_text_options(line);
  add_retry_option(line);
  add_line_options(line);
}

void pipe_port(const invocation& request) {
  line_address address = address_of(request);
  const milliseconds quiet(
      Tamrin::parse_number(request.options.at(kQuiet).text(), "quiet time", 1, kMaxQuiet));
  const auto newline = parse_line_end(request.options.at(kNewlineOption).text(), true);
  const auto changes = text_changes_of(request.options);

  const console::interrupt stop;
  address.stop = stop.event();
  input_stream input(::GetStdHandle(STD_INPUT_HANDLE));
  output_stream output(::GetStdHandle(STD_OUTPUT_HANDLE));
  attempts sessions(request.options, stop);
  sessions.run([&] {
    pipe_session session(input, output, quiet, newline, changes);
    remote_line line(address);
    sessions.reached(line.name());
    session.run(line, stop.event());
  });
}

}  // namespace tarnwheel::client
