#include "bench/local_port.h"

#include "async/errors.h"
#include "platform/serial.h"

namespace bench {
namespace {

using ostra::details::check_bool;
using ostra::details::check_file;
using ostra::details::check_pointer;
using ostra::details::throw_last_error;

void CheckStarted(BOOL done) {
  if (!done && ::GetLastError() != ERROR_IO_PENDING)
    throw_last_error();
}

}  // namespace

LocalPort::LocalPort(std::uint32_t number)
    : port_(check_file(::CreateFileW((LR"(\\.\COM)" + std::to_wstring(number)).c_str(),
                                     GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_OVERLAPPED, nullptr))),
      read_done_(check_pointer(::CreateEventW(nullptr, TRUE, FALSE, nullptr))),
      write_done_(check_pointer(::CreateEventW(nullptr, TRUE, FALSE, nullptr))) {
  COMMTIMEOUTS wait_for_all = {};
  check_bool(::SetCommTimeouts(port_.get(), &wait_for_all));
}

void LocalPort::Echo(std::size_t size) {
  Bytes sent(size), received(size);
  OVERLAPPED read = {}, write = {};
  read.hEvent = read_done_.get();
  write.hEvent = write_done_.get();
  const auto count = static_cast<DWORD>(size);
  CheckStarted(::ReadFile(port_.get(), received.data(), count, nullptr, &read));
  CheckStarted(::WriteFile(port_.get(), sent.data(), count, nullptr, &write));
  DWORD moved = 0;
  check_bool(::GetOverlappedResult(port_.get(), &write, &moved, TRUE));
  check_bool(::GetOverlappedResult(port_.get(), &read, &moved, TRUE));
}

Bytes LocalPort::WaitForAllOfARead() {
  return Join(Join(Integer(IOCTL_SERIAL_SET_TIMEOUTS), Integer(0)),
              Vector(Bytes(sizeof(SERIAL_TIMEOUTS))));
}

}  // namespace bench
