#include "server/serial_port.h"

#include <mutex>
#include <shared_mutex>

#include "async/device_control.h"
#include "async/errors.h"
#include "format/format.h"

namespace tarnwheel {
namespace {

class counted_call {
 public:
  explicit counted_call(std::atomic<unsigned>& count) noexcept : count_(count) { ++count_; }
  counted_call(const counted_call&) = delete;
  counted_call& operator=(const counted_call&) = delete;
  ~counted_call() { --count_; }

 private:
  std::atomic<unsigned>& count_;
};

}  // namespace

HRESULT serial_port::open(std::uint32_t number) {
  const std::wstring path = tfmt::format(LR"(\\.\COM{0})", number);
  Tamrin::unique_file device(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                           OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
  if (!device)
    return ostra::details::last_hresult();
  // A call that succeeds at once continues inline; drivers differ in whether they would queue a
  // completion for it.
  binding_.bind(device.get(), ostra::immediate_success::continues_inline);
  const std::lock_guard guard(lock_);
  device_ = std::move(device);
  return S_OK;
}

void serial_port::close() noexcept {
  const std::lock_guard guard(lock_);
  if (!device_)
    return;
  ::CancelIoEx(device_.get(), nullptr);
  device_.reset();
}

template <class Call>
ostra::future<DWORD> serial_port::perform(Call call) {
  const counted_call counted(pending_);
  const auto start = [this, &call](HANDLE, OVERLAPPED* overlapped) noexcept -> DWORD {
    const std::shared_lock guard(lock_);
    if (!device_)
      return ERROR_OPERATION_ABORTED;
    return call(device_.get(), overlapped);
  };
  ostra::io_call operation(binding_, start);
  const DWORD size = co_await operation;
  co_return size;
}

ostra::future<DWORD> serial_port::control(std::uint32_t code, std::span<const std::byte> input,
                                          std::span<std::byte> output) {
  return perform(ostra::device_control{code, input, output});
}

ostra::future<DWORD> serial_port::write(std::span<const std::byte> data) {
  return perform(ostra::write_file{data.data(), static_cast<DWORD>(data.size())});
}

ostra::future<DWORD> serial_port::read(std::span<std::byte> buffer) {
  return perform(ostra::read_file{buffer.data(), static_cast<DWORD>(buffer.size())});
}

}  // namespace tarnwheel
