#include "server/present_ports.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/test_port.h"

namespace tarnwheel {
namespace {

using system_test::TestPort;

// The machine may have other ports.
std::vector<port_entry> registered_ports() {
  std::vector<port_entry> ports = present_ports();
  EXPECT_TRUE(std::ranges::is_sorted(ports, {}, &port_entry::number));
  std::erase_if(ports, [](const port_entry& port) {
    return port.number < 60200 && port.friendly_name != L"Without a number";
  });
  return ports;
}

TEST(PresentPorts, AreRegisteredDevicesByNumber) {
  const std::wstring long_name(500, L'n');
  {
    const TestPort last(L"COM60210", L"Port \u00e9");
    const TestPort nameless(L"COM60201", std::nullopt);
    const TestPort twin(L"COM60203", long_name);
    const TestPort other_twin(L"LPT60203", long_name);
    const TestPort dropped(L"COM", L"Without a number");
    EXPECT_EQ(registered_ports(),
              (std::vector<port_entry>{
                  {60201, L""}, {60203, long_name}, {60203, long_name}, {60210, L"Port \u00e9"}}));
  }
  EXPECT_TRUE(registered_ports().empty());
}

}  // namespace
}  // namespace tarnwheel
