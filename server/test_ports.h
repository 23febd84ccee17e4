// For tests: serial ports that exist only as entries of the system's device list.
#pragma once

#include <optional>
#include <string>

#include "server/device_handles.h"

namespace tarnwheel::test {

// A device with a COM port interface that counts as present from construction to destruction. Needs
// the rights of an administrator. Throws hresult_error.
class test_port {
 public:
  // `port_name` is what the device's hardware key says, such as COM207.
  test_port(const std::wstring& port_name, const std::optional<std::wstring>& friendly_name);
  test_port(const test_port&) = delete;
  test_port& operator=(const test_port&) = delete;
  ~test_port();

 private:
  void register_device();
  void set_port_name(const std::wstring& port_name);
  void set_friendly_name(const std::wstring& friendly_name);
  void link_interface();

  unique_device_set set_;
  SP_DEVINFO_DATA device_ = {};
};

}  // namespace tarnwheel::test
