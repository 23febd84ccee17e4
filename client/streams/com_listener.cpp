#include "client/streams/com_listener.h"

#include <chrono>
#include <utility>

#include "app/command_line/cmd_line_syntax_error.h"
#include "async/device_control.h"
#include "async/within.h"
#include "client/line/client_error.h"
#include "client/line/control_bytes.h"
#include "client/line/line_controls.h"
#include "client/streams/insertion_decoder.h"
#include "console/print.h"
#include "format/format.h"

namespace tarnwheel::client {
namespace {

constexpr known_cause kOpenCauses[] = {
    {ERROR_FILE_NOT_FOUND, L"{0} does not exist", failure::local},
    {ERROR_ACCESS_DENIED, L"{0} is in use by another program", failure::local},
    {ERROR_SHARING_VIOLATION, L"{0} is in use by another program", failure::local},
    {ERROR_INVALID_FUNCTION, L"{0} is not a serial port", failure::local},
    {ERROR_NOT_SUPPORTED, L"{0} has no modem lines", failure::local},
};

constexpr wchar_t kNameCharacters[] =
    L"0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// In milliseconds. A read completes with whatever has arrived, or without bytes after this time; a
// write completes when everything is written.
constexpr ULONG kQuietTime = 500;
constexpr SERIAL_TIMEOUTS kTimeouts = {MAXDWORD, MAXDWORD, kQuietTime, 0, 0};

// IOCTL_SERIAL_LSRMST_INSERT with the extension of virtual null modems, which inserts breaks, rate
// and line control of the other end. The output is their present state.
constexpr std::string_view kExtension("c0c\0", 4);
constexpr std::uint32_t kInsertions = 0x1 | 0x400 | 0x100 | 0x200 | 0x0100'0000;
constexpr std::uint32_t kClearInput = 0x0200'0000;
constexpr std::size_t kStateSize = 3 + 6 + 5;

std::vector<std::byte> insertion_request(std::uint32_t options) {
  std::vector<std::byte> request = {kInsertionEscape};
  for (const auto part :
       {std::as_bytes(std::span(kExtension)), std::as_bytes(std::span(&options, 1))})
    request.insert(request.end(), part.begin(), part.end());
  return request;
}

ostra::future<std::uint32_t> number_in(ostra::future<std::vector<std::byte>> output) {
  const auto bytes = co_await output;
  co_return result_of<std::uint32_t>(bytes);
}

Tamrin::unique_file open(const std::wstring& name) {
  return Tamrin::unique_file(ostra::details::check_file(
      ::CreateFileW((LR"(\\.\)" + name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                    OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr)));
}

}  // namespace

com_stream::com_stream(std::wstring name, bool ends_with_program,
                       std::shared_ptr<ostra::auto_reset_event> signal)
    : closing_signal{std::move(signal)},
      handle_stream(open(name)),
      name_(std::move(name)),
      ends_with_program_(ends_with_program) {}

// Turns off flow control, DTR and RTS.
ostra::future<void> com_stream::set_up() {
  auto timed = control(IOCTL_SERIAL_SET_TIMEOUTS, bytes_of(kTimeouts));
  co_await timed;
  auto freed = control(IOCTL_SERIAL_SET_HANDFLOW, bytes_of(SERIAL_HANDFLOW{}));
  co_await freed;
  auto begun = begin_insertions();
  inserts_ = co_await begun;
  const std::uint32_t breaks = inserts_ ? 0 : SERIAL_EV_BREAK;
  auto masked =
      control(IOCTL_SERIAL_SET_WAIT_MASK, bytes_of(SERIAL_EV_CTS | SERIAL_EV_DSR | breaks));
  co_await masked;
}

// Bytes received earlier are not escaped and cannot be told apart from insertions, so they are
// cleared. A driver without the extension takes the first byte as the standard form of the request,
// in which a zero byte turns insertions off again.
ostra::future<bool> com_stream::begin_insertions() {
  try {
    auto begun = control(IOCTL_SERIAL_LSRMST_INSERT, insertion_request(kInsertions | kClearInput),
                         kStateSize);
    const auto inserted = co_await begun;
    if (inserted.size() == kStateSize)
      co_return true;
    auto ended = control(IOCTL_SERIAL_LSRMST_INSERT, bytes(1));
    co_await ended;
  } catch (const ostra::hresult_error&) {
    // The driver does not support insertions.
  }
  co_return false;
}

ostra::future<com_stream::bytes> com_stream::state() {
  return control(IOCTL_SERIAL_LSRMST_INSERT, insertion_request(kInsertions), kStateSize);
}

ostra::future<com_stream::bytes> com_stream::control(std::uint32_t code, bytes input,
                                                     std::size_t output_size) {
  return ostra::within(perform(code, std::move(input), output_size, token()), kControlLimit);
}

ostra::future<std::uint32_t> com_stream::modem_status() {
  return number_in(control(IOCTL_SERIAL_GET_MODEMSTATUS, {}, sizeof(std::uint32_t)));
}

ostra::future<std::uint32_t> com_stream::wait_for_events(ostra::cancellation_token token) {
  return number_in(perform(IOCTL_SERIAL_WAIT_ON_MASK, {}, sizeof(std::uint32_t), std::move(token)));
}

ostra::future<com_stream::bytes> com_stream::perform(std::uint32_t code, bytes input,
                                                     std::size_t output_size,
                                                     ostra::cancellation_token token) {
  const auto self = shared_from_this();
  bytes output(output_size);
  auto call = handle().call(ostra::device_control{code, input, output}, token);
  const DWORD size = co_await call;
  output.resize(size);
  co_return output;
}

// The last bytes may arrive between an empty read and the query of DSR, so the stream has ended
// only when a read after that query is empty too.
ostra::future<std::size_t> com_stream::read(std::span<std::byte> buffer) {
  const auto self = shared_from_this();
  for (bool has_gone = false;;) {
    auto read = handle_stream::read(buffer);
    const std::size_t size = co_await read;
    if (size != 0 || has_gone)
      co_return size;
    auto asked = modem_status();
    const std::uint32_t status = co_await asked;
    has_gone = ends_with_program_ && (status & SERIAL_DSR_STATE) == 0;
  }
}

namespace {

class com_listener final : public stream_listener {
 public:
  com_listener(std::wstring name, bool while_program_is_there)
      : name_(std::move(name)), waits_(while_program_is_there), next_(open_device().get()) {
    if (!next_->inserts())
      console::print(console::standard_stream::error,
                     tfmt::format(L"{0} does not report a program's line settings: those of the "
                                  L"command line apply\n",
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
    while (waits_) {
      auto asked = stream->modem_status();
      const std::uint32_t status = co_await asked;
      if ((status & SERIAL_DSR_STATE) != 0)
        break;
      auto changed = stream->wait_for_events(token_);
      co_await changed;
    }
    std::shared_ptr<byte_stream> program = std::move(stream);
    co_return program;
  }

  void cancel() noexcept override { cancellation_.cancel(); }
  [[nodiscard]] std::wstring address() const override { return name_; }

 private:
  ostra::future<std::shared_ptr<com_stream>> open_device() {
    HRESULT code = S_OK;
    try {
      auto stream = std::make_shared<com_stream>(name_, waits_, closed_);
      auto ready = stream->set_up();
      co_await ready;
      if (waits_) {
        auto asked = stream->modem_status();
        co_await asked;
      }
      co_return stream;
    } catch (const ostra::hresult_error& error) {
      code = error.code();
    }
    throw explain(code, name_, kOpenCauses, failure::local);
  }

  const std::wstring name_;
  const bool waits_;
  const ostra::cancellation_source cancellation_;
  const ostra::cancellation_token token_ = cancellation_.token();

  // Shared with the streams, each of which sets it once, on closing; accept() waits for that before
  // each stream but the first.
  const std::shared_ptr<ostra::auto_reset_event> closed_ =
      std::make_shared<ostra::auto_reset_event>(token_);

  std::shared_ptr<com_stream> next_;  // the first stream; used by accept() only
};

}  // namespace

std::unique_ptr<stream_listener> listen_com(std::wstring_view name, bool while_program_is_there) {
  if (name.empty() || name.find_first_not_of(kNameCharacters) != name.npos)
    throw Tamrin::cmd_line_syntax_error("Invalid device specified.", name,
                                        L"a name such as COM20 or CNCB0");
  return std::make_unique<com_listener>(std::wstring(name), while_program_is_there);
}

}  // namespace tarnwheel::client
