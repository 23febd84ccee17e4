// Serial ports that exist only as entries of the system's device list.
#pragma once

#include <optional>
#include <string>

#include "platform/unique_resource.h"

#include <setupapi.h>  // needs <windows.h> before it

namespace system_test {

// A device with a COM port interface that counts as present from construction to destruction. Needs
// the rights of an administrator. Throws std::runtime_error.
class TestPort {
 public:
  // `port_name` is what the device's hardware key says, such as COM207. A device that a program has left
  // under this name is replaced.
  TestPort(const std::wstring& port_name, const std::optional<std::wstring>& friendly_name);
  TestPort(const TestPort&) = delete;
  TestPort& operator=(const TestPort&) = delete;
  ~TestPort();

 private:
  HDEVINFO set_;
  SP_DEVINFO_DATA device_ = {sizeof device_, {}, 0, 0};
};

}  // namespace system_test
