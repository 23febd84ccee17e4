#include "server/present_ports.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/test_port.h"

namespace tarnwheel {
namespace {

TEST(PresentPorts, AreRegisteredDevicesByNumber) {
  const std::wstring long_name(500, L'n');
  const system_test::TestPort last(L"COM60210", L"Port \u00e9"),
      nameless(L"COM60201", std::nullopt), twin(L"COM60203", long_name),
      other_twin(L"LPT60203", long_name), dropped(L"COM", L"Without a number");
  auto ports = present_ports();  // of which the machine may have others
  std::erase_if(ports, [](const auto& port) { return port.number > 0 && port.number < 60200; });
  const std::vector<port_entry> expected = {
      {60201, L""}, {60203, long_name}, {60203, long_name}, {60210, L"Port \u00e9"}};
  EXPECT_EQ(ports, expected);
}

}  // namespace
}  // namespace tarnwheel
