#include "tests/support/test_port.h"

#include "tests/support/program.h"

namespace system_test {
namespace {

constexpr GUID kPortsClass = {
    0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID kComPortInterface = {
    0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};
const std::wstring kInterfaces =
    LR"(System\CurrentControlSet\Control\DeviceClasses\{86e0d1e0-8089-11d0-9ce4-08003e301f73}\##?#)";
constexpr DWORD kDetailSize = 2048;

const BYTE* BytesOf(const std::wstring& text) {
  return reinterpret_cast<const BYTE*>(text.c_str());
}

DWORD SizeOf(const std::wstring& text) {
  return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

// A program that was killed leaves its devices. What is removed stays in its set.
void RemoveStale(const std::wstring& name) {
  SP_DEVINFO_DATA device = {sizeof device, {}, 0, 0};
  const HDEVINFO set = ::SetupDiCreateDeviceInfoList(&kPortsClass, nullptr);
  if (::SetupDiOpenDeviceInfoW(set, name.c_str(), nullptr, 0, &device))
    ::SetupDiRemoveDevice(set, &device);
  ::SetupDiDestroyDeviceInfoList(set);
}

}  // namespace

TestPort::TestPort(const std::wstring& port_name, const std::optional<std::wstring>& friendly_name)
    : set_(::SetupDiCreateDeviceInfoList(&kPortsClass, nullptr)) {
  const std::wstring name = L"ROOT\\TARNWHEEL_TEST\\" + port_name;
  RemoveStale(name);
  SP_DEVICE_INTERFACE_DATA entry = {sizeof entry, {}, 0, 0};
  alignas(8) std::byte buffer[kDetailSize] = {};
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer);
  detail->cbSize = sizeof *detail;
  Require(
      ::SetupDiCreateDeviceInfoW(set_, name.c_str(), &kPortsClass, nullptr, nullptr, 0, &device_) &&
          ::SetupDiRegisterDeviceInfo(set_, &device_, 0, nullptr, nullptr, nullptr) &&
          ::SetupDiCreateDeviceInterfaceW(set_, &device_, &kComPortInterface, nullptr, 0, &entry) &&
          ::SetupDiGetDeviceInterfaceDetailW(set_, &entry, detail, kDetailSize, nullptr, nullptr),
      "registering a device");
  const HKEY key =
      ::SetupDiCreateDevRegKeyW(set_, &device_, DICS_FLAG_GLOBAL, 0, DIREG_DEV, nullptr, nullptr);
  ::RegSetValueExW(key, L"PortName", 0, REG_SZ, BytesOf(port_name), SizeOf(port_name));
  ::RegCloseKey(key);
  if (friendly_name)
    ::SetupDiSetDeviceRegistryPropertyW(set_, &device_, SPDRP_FRIENDLYNAME, BytesOf(*friendly_name),
                                        SizeOf(*friendly_name));
  // What the plug and play manager does when a driver enables the interface. The key of \\?\NAME is
  // called ##?#NAME.
  const std::wstring control =
      kInterfaces + std::wstring(detail->DevicePath + 4) + LR"(\#\Control)";
  const DWORD linked = 1;
  Require(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, control.c_str(), L"Linked", REG_DWORD, &linked,
                            sizeof linked) == ERROR_SUCCESS,
          "linking a device's interface");
}

TestPort::~TestPort() {
  ::SetupDiRemoveDevice(set_, &device_);
  ::SetupDiDestroyDeviceInfoList(set_);
}

}  // namespace system_test
