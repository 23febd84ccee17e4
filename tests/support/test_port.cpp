#include "tests/support/test_port.h"

#include "tests/support/patience.h"

namespace system_test {
namespace {

const std::wstring kSystem = LR"(System\CurrentControlSet\)";
const std::wstring kPortsClass = L"{4d36e978-e325-11ce-bfc1-08002be10318}";
const std::wstring kComPortInterface = L"{86e0d1e0-8089-11d0-9ce4-08003e301f73}";
const std::wstring kDevice = LR"(ROOT\TARNWHEEL_TEST\)";

void Set(const std::wstring& key, const wchar_t* name, DWORD type, const void* data,
         std::size_t size) {
  Require(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, type, data,
                            static_cast<DWORD>(size)) == ERROR_SUCCESS,
          "registering a device");
}

void Set(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
  Set(key, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

}  // namespace

TestPort::TestPort(const std::wstring& port_name, const std::wstring& friendly_name)
    : device_(kSystem + LR"(Enum\)" + kDevice + port_name),
      interface_(kSystem + LR"(Control\DeviceClasses\)" + kComPortInterface +
                 L"\\##?#ROOT#TARNWHEEL_TEST#" + port_name + L'#' + kComPortInterface) {
  Set(device_, L"ClassGUID", kPortsClass);
  Set(device_, L"FriendlyName", friendly_name);
  Set(device_ + LR"(\Device Parameters)", L"PortName", port_name);
  Set(interface_, L"DeviceInstance", kDevice + port_name);
  Set(interface_ + LR"(\#)", L"SymbolicLink", LR"(\\?\)" + port_name);
  const DWORD linked = 1;
  Set(interface_ + LR"(\#\Control)", L"Linked", REG_DWORD, &linked, sizeof linked);
}

TestPort::~TestPort() {
  ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, interface_.c_str());
  ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, device_.c_str());
}

}  // namespace system_test
