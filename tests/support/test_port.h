// Serial ports that exist only as entries of the system's device list.
#pragma once

#include <string>

#include "platform/unique_resource.h"

namespace system_test {

// A device with a COM port interface that counts as present from construction to destruction. It is
// what Wine's setup functions look for in the registry; Windows lets nobody but its plug and play
// manager write there. Throws std::runtime_error.
class TestPort {
 public:
  // `port_name` is what the device's hardware key says, such as COM207. A device that a program has left
  // under this name is replaced.
  TestPort(const std::wstring& port_name, const std::wstring& friendly_name);
  TestPort(const TestPort&) = delete;
  TestPort& operator=(const TestPort&) = delete;
  ~TestPort();

 private:
  const std::wstring device_, interface_;  // their keys
};

}  // namespace system_test
