#include "rpc/mailslot.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "async/errors.h"
#include "async/timer.h"
#include "format/format.h"

namespace tether {
namespace {

constexpr HRESULT kUnbindable = static_cast<HRESULT>(0x80070057);  // ERROR_INVALID_PARAMETER
constexpr HRESULT kTooLong = static_cast<HRESULT>(0x8007007A);     // ERROR_INSUFFICIENT_BUFFER

constexpr std::chrono::milliseconds kPollInterval(50);

}  // namespace

void Mailslot::LinkCancellation(const ostra::cancellation_source& owner) {
  cancellation_ = ostra::cancellation_source();
  token_ = cancellation_.token();
  owner.link(cancellation_);
  // An owner that was cancelled before the link does not reach what is linked later.
  if (owner.is_cancelled())
    cancellation_.cancel();
}

HRESULT Mailslot::keep(HANDLE created) {
  Tamrin::unique_file file(created);
  if (!file)
    return ostra::details::last_hresult();
  binding_ = ostra::io_binding();
  file_ = std::move(file);
  return S_OK;
}

void Mailslot::bind() {
  binding_.bind(file_.get(), ostra::immediate_success::continues_inline);
}

HRESULT Mailslot::Create(std::wstring_view name, SECURITY_ATTRIBUTES* security) {
  const std::wstring path = tfmt::format(LR"(\\.\mailslot\{0})", name);
  const HRESULT result = keep(::CreateMailslotW(path.c_str(), 0, MAILSLOT_WAIT_FOREVER, security));
  if (FAILED(result))
    return result;
  try {
    bind();
  } catch (const ostra::hresult_error& error) {
    if (error.code() != kUnbindable)
      throw;
    // A synchronous mailslot: Read polls.
  }
  return result;
}

HRESULT Mailslot::Open(std::wstring_view target, std::wstring_view name) {
  const std::wstring path = tfmt::format(LR"(\\{0}\mailslot\{1})", target, name);
  const HRESULT result = keep(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                            OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
  if (SUCCEEDED(result))
    bind();
  return result;
}

ostra::future<std::vector<std::byte>> Mailslot::Read() {
  return binding_.is_bound() ? read_overlapped() : read_polled();
}

ostra::future<std::vector<std::byte>> Mailslot::read_overlapped() {
  const auto self = shared_from_this();
  std::vector<std::byte> message(kMaxMessage);
  try {
    ostra::io_call read(binding_, ostra::read_file{message.data(), kMaxMessage}, token_);
    const DWORD size = co_await read;
    message.resize(size);
    co_return message;
  } catch (const ostra::hresult_error& error) {
    if (error.code() != kTooLong)
      throw;
  }
  const DWORD size = next_size();
  if (size != MAILSLOT_NO_MESSAGE) {
    message.resize(size);
    ostra::io_call discarded(binding_, ostra::read_file{message.data(), size}, token_);
    co_await discarded;
  }
  throw ostra::hresult_error(kTooLong);
}

ostra::future<std::vector<std::byte>> Mailslot::read_polled() {
  const auto self = shared_from_this();
  ostra::auto_cancel_timer timer(token_);
  DWORD size = next_size();
  while (size == MAILSLOT_NO_MESSAGE) {
    auto pause = timer.wait(kPollInterval);
    co_await pause;
    size = next_size();
  }
  const DWORD room = std::max(size, kMaxMessage);
  std::vector<std::byte> message(room);
  DWORD arrived = 0;
  const BOOL succeeded = ::ReadFile(file_.get(), message.data(), room, &arrived, nullptr);
  // An empty message is taken out of the slot but reads as a broken pipe.
  if (!succeeded && size != 0)
    ostra::details::throw_last_error();
  if (size > kMaxMessage)
    throw ostra::hresult_error(kTooLong);
  message.resize(arrived);
  co_return message;
}

DWORD Mailslot::next_size() const {
  DWORD size = MAILSLOT_NO_MESSAGE;
  ostra::details::check_bool(::GetMailslotInfo(file_.get(), nullptr, &size, nullptr, nullptr));
  return size;
}

ostra::future<std::uint32_t> Mailslot::Write(std::vector<std::byte> message) {
  const auto self = shared_from_this();
  if (!binding_.is_bound())
    throw ostra::hresult_error(E_FAIL);
  const auto size = static_cast<DWORD>(message.size());
  ostra::io_call write(binding_, ostra::write_file{message.data(), size}, token_);
  const DWORD written = co_await write;
  co_return written;
}

}  // namespace tether
