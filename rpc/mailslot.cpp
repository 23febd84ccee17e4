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

HRESULT Mailslot::Create(std::wstring_view name, SECURITY_ATTRIBUTES* security) {
  const std::wstring path = tfmt::format(LR"(\\.\mailslot\{0})", name);
  Tamrin::unique_file made(::CreateMailslotW(path.c_str(), 0, MAILSLOT_WAIT_FOREVER, security));
  if (!made)
    return ostra::details::last_hresult();
  try {
    file_.set(std::move(made));
  } catch (const ostra::hresult_error& error) {
    if (error.code() != kUnbindable)
      throw;
    // A synchronous mailslot, which Read polls.
  }
  return S_OK;
}

HRESULT Mailslot::Open(std::wstring_view target, std::wstring_view name) {
  const std::wstring path = tfmt::format(LR"(\\{0}\mailslot\{1})", target, name);
  Tamrin::unique_file opened(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                           OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
  if (!opened)
    return ostra::details::last_hresult();
  file_.set(std::move(opened));
  return S_OK;
}

ostra::future<std::vector<std::byte>> Mailslot::Read() {
  return file_.is_bound() ? read_overlapped() : read_polled();
}

ostra::future<std::vector<std::byte>> Mailslot::read_overlapped() {
  const auto self = shared_from_this();
  std::vector<std::byte> message(kMaxMessage);
  try {
    auto read = file_.call(ostra::read_file{message.data(), kMaxMessage});
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
    auto discarded = file_.call(ostra::read_file{message.data(), size});
    co_await discarded;
  }
  throw ostra::hresult_error(kTooLong);
}

ostra::future<std::vector<std::byte>> Mailslot::read_polled() {
  const auto self = shared_from_this();
  ostra::auto_cancel_timer timer(file_.token());
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
  // Reading an empty message removes it from the slot, but fails as on a broken pipe.
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
  if (!file_.is_bound())
    throw ostra::hresult_error(E_FAIL);
  const auto size = static_cast<DWORD>(message.size());
  auto write = file_.call(ostra::write_file{message.data(), size});
  const DWORD written = co_await write;
  co_return written;
}

}  // namespace tether
