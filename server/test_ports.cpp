#include "server/test_ports.h"

#include <atomic>
#include <vector>

#include "async/errors.h"
#include "server/present_ports.h"

namespace tarnwheel::test {
namespace {

using ostra::details::check_bool;
using ostra::details::check_file;
using ostra::details::throw_win32;

constexpr GUID kPortsClass = {
    0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

// No two devices of this machine have the same.
std::wstring next_device_name() {
  static std::atomic<unsigned> count = 0;
  return L"ROOT\\TARNWHEEL_TEST\\" + std::to_wstring(::GetCurrentProcessId()) + L"_" +
         std::to_wstring(++count);
}

DWORD size_with_terminator(const std::wstring& text) {
  return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

const BYTE* bytes_of(const std::wstring& text) {
  return reinterpret_cast<const BYTE*>(text.c_str());
}

void check_status(LSTATUS status) {
  if (status != ERROR_SUCCESS)
    throw_win32(static_cast<DWORD>(status));
}

std::wstring interface_path(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& port_interface) {
  DWORD size = 0;
  ::SetupDiGetDeviceInterfaceDetailW(set, &port_interface, nullptr, 0, &size, nullptr);
  std::vector<std::byte> buffer(size);
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = sizeof(*detail);
  check_bool(
      ::SetupDiGetDeviceInterfaceDetailW(set, &port_interface, detail, size, nullptr, nullptr));
  return detail->DevicePath;
}

}  // namespace

test_port::test_port(const std::wstring& port_name,
                     const std::optional<std::wstring>& friendly_name)
    : set_(check_file(::SetupDiCreateDeviceInfoList(&kPortsClass, nullptr))) {
  register_device();
  set_port_name(port_name);
  if (friendly_name)
    set_friendly_name(*friendly_name);
  link_interface();
}

test_port::~test_port() {
  ::SetupDiRemoveDevice(set_.get(), &device_);
}

void test_port::register_device() {
  device_.cbSize = sizeof(device_);
  check_bool(::SetupDiCreateDeviceInfoW(set_.get(), next_device_name().c_str(), &kPortsClass,
                                        nullptr, nullptr, 0, &device_));
  check_bool(::SetupDiRegisterDeviceInfo(set_.get(), &device_, 0, nullptr, nullptr, nullptr));
}

void test_port::set_port_name(const std::wstring& port_name) {
  const unique_device_key key(::SetupDiCreateDevRegKeyW(set_.get(), &device_, DICS_FLAG_GLOBAL, 0,
                                                        DIREG_DEV, nullptr, nullptr));
  check_file(key.get());
  check_status(::RegSetValueExW(key.get(), L"PortName", 0, REG_SZ, bytes_of(port_name),
                                size_with_terminator(port_name)));
}

void test_port::set_friendly_name(const std::wstring& friendly_name) {
  check_bool(::SetupDiSetDeviceRegistryPropertyW(set_.get(), &device_, SPDRP_FRIENDLYNAME,
                                                 bytes_of(friendly_name),
                                                 size_with_terminator(friendly_name)));
}

// Does what the plug and play manager does when a driver enables the interface.
void test_port::link_interface() {
  SP_DEVICE_INTERFACE_DATA port_interface = {};
  port_interface.cbSize = sizeof(port_interface);
  check_bool(::SetupDiCreateDeviceInterfaceW(set_.get(), &device_, &kComPortInterface, nullptr, 0,
                                             &port_interface));
  // The key of \\?\NAME is called ##?#NAME.
  const std::wstring name = interface_path(set_.get(), port_interface).substr(4);
  const std::wstring key =
      L"System\\CurrentControlSet\\Control\\DeviceClasses\\"
      L"{86e0d1e0-8089-11d0-9ce4-08003e301f73}\\##?#" +
      name + L"\\#\\Control";
  const DWORD linked = 1;
  check_status(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Linked", REG_DWORD, &linked,
                                 sizeof(linked)));
}

}  // namespace tarnwheel::test
