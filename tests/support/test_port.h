// Serial ports that exist only as entries in the system's device list.
#pragma once

#include <string>

#include "platform/unique_resource.h"

namespace system_test {

// A device with a COM port interface, present from construction to destruction. It consists of the
// registry keys that Wine's setup functions look for; on Windows only the Plug and Play manager may
// write them. Throws std::runtime_error.
class TestPort {
 public:
  // `port_name`, such as COM207, goes into the device's hardware key. A device that a program has
  // left behind under this name is replaced.
  TestPort(const std::wstring& port_name, const std::wstring& friendly_name);
  TestPort(const TestPort&) = delete;
  TestPort& operator=(const TestPort&) = delete;
  ~TestPort();

 private:
  const std::wstring device_, interface_;  // their keys
};

}  // namespace system_test
