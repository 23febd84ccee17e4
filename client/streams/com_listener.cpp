#include "client/streams/com_listener.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>

#include "app/command_line/cmd_line_syntax_error.h"
#include "async/device_control.h"
#include "async/within.h"
#include "client/line/client_error.h"
#include "client/line/line_controls.h"
#include "client/streams/insertion_decoder.h"
#include "console/print.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

using bytes = std::vector<std::byte>;

constexpr known_cause kOpenCauses[] = {
    {ERROR_FILE_NOT_FOUND, L"{0} does not exist", failure::local},
    {ERROR_ACCESS_DENIED, L"{0} is in use by another program", failure::local},
    {ERROR_SHARING_VIOLATION, L"{0} is in use by another program", failure::local},
    {ERROR_INVALID_FUNCTION, L"{0} is not a serial port", failure::local},
};

// A read ends with whatever has come, or after a minute without bytes: some drivers know no read that
// pends for ever. Writes end when all is written.
constexpr SERIAL_TIMEOUTS kTimeouts = {MAXDWORD, MAXDWORD, 60'000, 0, 0};

// IOCTL_SERIAL_LSRMST_INSERT with the null modems' extension: the escape character, the extension's
// mark, options.
constexpr std::byte kExtension[] = {std::byte{'c'}, std::byte{'0'}, std::byte{'c'}, std::byte{}};
constexpr std::uint32_t kLineStatus = 0x1;
constexpr std::uint32_t kBaudRate = 0x100;
constexpr std::uint32_t kLineControl = 0x200;
constexpr std::uint32_t kBreaksAlone = 0x400;  // of the line's status
constexpr std::uint32_t kInsertions = kLineStatus | kBaudRate | kLineControl | kBreaksAlone;
constexpr std::uint32_t kGiveState = 0x0100'0000;
constexpr std::uint32_t kClearInput = 0x0200'0000;
constexpr std::uint32_t kGiveOptions = 0xFFFF'FFFF;
constexpr std::size_t kOptionsSize = sizeof kExtension + sizeof(std::uint32_t);
constexpr std::size_t kStateSize = 3 + 6 + 5;

template <class T>
bytes bytes_of(const T& value) {
  const auto view = std::as_bytes(std::span(&value, 1));
  return {view.begin(), view.end()};
}

// Zero where there is less.
std::uint32_t integer_at(const bytes& from, std::size_t offset) {
  std::uint32_t value = 0;
  if (from.size() >= offset + sizeof value)
    std::memcpy(&value, from.data() + offset, sizeof value);
  return value;
}

bytes insertion_request(std::uint32_t options) {
  bytes request = {kInsertionEscape};
  request.insert(request.end(), std::begin(kExtension), std::end(kExtension));
  const bytes set = bytes_of(options);
  request.insert(request.end(), set.begin(), set.end());
  return request;
}

Tamrin::unique_file open(const std::wstring& name) {
  return Tamrin::unique_file(ostra::details::check_file(
      ::CreateFileW((LR"(\\.\)" + name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                    OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr)));
}

}  // namespace

com_stream::com_stream(std::wstring name, std::shared_ptr<ostra::auto_reset_event> signal)
    : closing_signal{std::move(signal)}, handle_stream(open(name)), name_(std::move(name)) {}

ostra::future<void> com_stream::set_up() {
  const SERIAL_LINE_CONTROL eight_bits = {STOP_BIT_1, NO_PARITY, 8};
  auto timed = control(IOCTL_SERIAL_SET_TIMEOUTS, bytes_of(kTimeouts), 0);
  co_await timed;
  auto shaped = control(IOCTL_SERIAL_SET_LINE_CONTROL, bytes_of(eight_bits), 0);
  co_await shaped;
  // No flow control, no byte with a meaning, DTR and RTS off.
  auto freed = control(IOCTL_SERIAL_SET_HANDFLOW, bytes_of(SERIAL_HANDFLOW{}), 0);
  co_await freed;
  auto begun = begin_insertions();
  co_await begun;
  const std::uint32_t more = inserts_ ? 0 : SERIAL_EV_BREAK;
  try {
    auto asked = control(IOCTL_SERIAL_GET_MODEMSTATUS, {}, sizeof(std::uint32_t));
    co_await asked;
    auto masked = control(IOCTL_SERIAL_SET_WAIT_MASK,
                          bytes_of(std::uint32_t{SERIAL_EV_CTS | SERIAL_EV_DSR | more}), 0);
    co_await masked;
    has_modem_lines_ = true;
  } catch (const ostra::hresult_error&) {
    // A device of bytes alone.
  }
}

ostra::future<void> com_stream::begin_insertions() {
  try {
    auto asked = control(IOCTL_SERIAL_LSRMST_INSERT, insertion_request(kGiveOptions), kOptionsSize);
    const bytes known = co_await asked;
    constexpr std::uint32_t needed = kInsertions | kGiveState | kClearInput;
    const bool extended =
        known.size() == kOptionsSize && std::ranges::equal(kExtension, std::span(known).first<4>());
    inserts_ = extended && (integer_at(known, sizeof kExtension) & needed) == needed;
    // A driver without the extension has taken the first byte for its own form of the request, in
    // which zero turns insertions off. What came before them is not escaped and cannot be told apart.
    bytes request = inserts_ ? insertion_request(kInsertions | kClearInput) : bytes(1);
    auto set = control(IOCTL_SERIAL_LSRMST_INSERT, std::move(request), 0);
    co_await set;
  } catch (const ostra::hresult_error&) {
    inserts_ = false;
  }
}

ostra::future<std::vector<std::byte>> com_stream::state() {
  return control(IOCTL_SERIAL_LSRMST_INSERT, insertion_request(kInsertions | kGiveState),
                 kStateSize);
}

ostra::future<std::uint32_t> com_stream::modem_status() {
  if (!has_modem_lines_)
    co_return SERIAL_CTS_STATE | SERIAL_DSR_STATE;
  auto asked = control(IOCTL_SERIAL_GET_MODEMSTATUS, {}, sizeof(std::uint32_t));
  const bytes status = co_await asked;
  co_return integer_at(status, 0);
}

ostra::future<std::uint32_t> com_stream::wait_for_events(ostra::cancellation_token token) {
  if (!has_modem_lines_)
    co_return 0;
  auto wait = perform(IOCTL_SERIAL_WAIT_ON_MASK, {}, sizeof(std::uint32_t), std::move(token));
  const bytes events = co_await wait;
  co_return integer_at(events, 0);
}

ostra::future<void> com_stream::set(std::uint32_t code) {
  auto set = control(code, {}, 0);
  co_await set;
}

ostra::future<std::uint32_t> com_stream::unread_bytes() {
  auto asked = control(IOCTL_SERIAL_GET_COMMSTATUS, {}, sizeof(SERIAL_STATUS));
  const bytes status = co_await asked;
  co_return integer_at(status, offsetof(SERIAL_STATUS, AmountInInQueue));
}

// Whoever finds the input empty behind the mark ends the stream: this, or the read that took the last
// of it.
ostra::future<void> com_stream::end_after_input() {
  const auto self = shared_from_this();
  ending_ = true;
  auto asked = unread_bytes();
  const std::uint32_t unread = co_await asked;
  if (unread == 0)
    cancel();
}

ostra::future<std::size_t> com_stream::read(std::span<std::byte> buffer) {
  const auto self = shared_from_this();
  for (;;) {
    if (ending_) {
      auto asked = unread_bytes();
      const std::uint32_t unread = co_await asked;
      if (unread == 0)
        co_return 0;
    }
    auto read = handle_stream::read(buffer);
    const std::size_t size = co_await read;
    if (size != 0)
      co_return size;
  }
}

ostra::future<bytes> com_stream::control(std::uint32_t code, bytes input, std::size_t output_size) {
  return ostra::within(perform(code, std::move(input), output_size, handle().token()),
                       kControlLimit);
}

ostra::future<bytes> com_stream::perform(std::uint32_t code, bytes input, std::size_t output_size,
                                         ostra::cancellation_token token) {
  const auto self = shared_from_this();
  bytes output(output_size);
  auto call = handle().call(ostra::device_control{code, input, output}, token);
  const DWORD size = co_await call;
  output.resize(size);
  co_return output;
}

namespace {

class com_listener final : public stream_listener {
 public:
  com_listener(std::wstring name, bool awaits_program)
      : name_(std::move(name)), awaits_program_(awaits_program), next_(open_device().get()) {
    if (awaits_program && !next_->has_modem_lines())
      throw client_error(name_ + L" does not report DSR, which tells that a program is there",
                         ostra::details::to_hresult(ERROR_NOT_SUPPORTED), failure::local);
    if (!next_->inserts())
      console::print(console::standard_stream::error,
                     tfmt::format(L"{0} does not tell a program's line settings: those of the "
                                  L"command line hold\n",
                                  name_));
  }

  ostra::future<std::shared_ptr<byte_stream>> accept() override {
    auto stream = std::exchange(next_, nullptr);
    while (!stream) {
      auto closed = closed_->wait_for(std::chrono::hours(1));
      const bool is_closed = co_await closed;
      if (is_closed) {
        auto opened = open_device();
        stream = co_await opened;
      }
    }
    if (awaits_program_) {
      auto coming = wait_for_program(stream);
      co_await coming;
    }
    std::shared_ptr<byte_stream> program = stream;
    co_return program;
  }

  void cancel() noexcept override { cancellation_.cancel(); }
  [[nodiscard]] std::wstring address() const override { return name_; }

 private:
  ostra::future<std::shared_ptr<com_stream>> open_device() {
    HRESULT code = S_OK;
    try {
      auto stream = std::make_shared<com_stream>(name_, closed_);
      auto ready = stream->set_up();
      co_await ready;
      co_return stream;
    } catch (const ostra::hresult_error& error) {
      code = error.code();
    }
    throw explain(code, name_, kOpenCauses, failure::local);
  }

  ostra::future<void> wait_for_program(std::shared_ptr<com_stream> stream) {
    for (;;) {
      auto asked = stream->modem_status();
      const std::uint32_t status = co_await asked;
      if ((status & SERIAL_DSR_STATE) != 0)
        co_return;
      auto changed = stream->wait_for_events(token_);
      co_await changed;
    }
  }

  const std::wstring name_;
  const bool awaits_program_;
  const ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_ = cancellation_.token();

  // Set once for each stream, which holds it too; accept() waits once for each but the first.
  const std::shared_ptr<ostra::auto_reset_event> closed_ =
      std::make_shared<ostra::auto_reset_event>(token_);

  std::shared_ptr<com_stream> next_;  // the first one; used by accept() only
};

}  // namespace

std::unique_ptr<stream_listener> listen_com(std::wstring_view name, bool awaits_program) {
  const auto is_ordinary = [](wchar_t c) {
    return (c >= L'0' && c <= L'9') || (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
  };
  if (name.empty() || !std::ranges::all_of(name, is_ordinary))
    throw Tamrin::cmd_line_syntax_error("Invalid device specified.", name,
                                        L"a name such as COM20 or CNCB0");
  return std::make_unique<com_listener>(std::wstring(name), awaits_program);
}

}  // namespace tarnwheel::client
