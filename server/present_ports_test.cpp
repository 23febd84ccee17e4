#include "server/present_ports.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/test_port.h"

namespace tarnwheel {
namespace {

using system_test::TestPort;
using ports = std::vector<port_entry>;

// The machine may have other ports.
ports registered_ports() {
  ports found = present_ports();
  std::erase_if(found, [](const auto& port) { return port.number > 0 && port.number < 60200; });
  return found;
}

TEST(PresentPorts, AreRegisteredDevicesByNumber) {
  const std::wstring long_name(500, L'n');
  {
    const TestPort last(L"COM60210", L"Port \u00e9");
    const TestPort nameless(L"COM60201", std::nullopt);
    const TestPort twin(L"COM60203", long_name);
    const TestPort other_twin(L"LPT60203", long_name);
    const TestPort dropped(L"COM", L"Without a number");
    EXPECT_EQ(
        registered_ports(),
        (ports{{60201, L""}, {60203, long_name}, {60203, long_name}, {60210, L"Port \u00e9"}}));
  }
  EXPECT_EQ(registered_ports(), ports());
}

}  // namespace
}  // namespace tarnwheel
