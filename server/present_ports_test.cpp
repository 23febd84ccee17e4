#include "server/present_ports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>

#include "server/test_ports.h"

namespace tarnwheel {
namespace {

// Only what a test registered itself; the machine may have other ports.
std::vector<port_entry> present_from(std::uint32_t first) {
  std::vector<port_entry> ports = present_ports();
  std::erase_if(ports, [first](const port_entry& port) { return port.number < first; });
  return ports;
}

TEST(PresentPorts, ListsRegisteredDevicesByNumber) {
  const std::wstring long_name(500, L'n');
  {
    const test::test_port last(L"COM60210", L"Port \u00e9");
    const test::test_port nameless(L"COM60201", std::nullopt);
    const test::test_port twin(L"COM60203", long_name);
    const test::test_port other_twin(L"LPT60203", long_name);
    const test::test_port dropped(L"COM", L"Without a number");
    EXPECT_EQ(present_from(60200),
              (std::vector<port_entry>{
                  {60201, L""}, {60203, long_name}, {60203, long_name}, {60210, L"Port \u00e9"}}));
    const std::vector<port_entry> all = present_ports();
    EXPECT_TRUE(std::none_of(all.begin(), all.end(), [](const port_entry& port) {
      return port.number == 0 || port.friendly_name == L"Without a number";
    }));
  }
  EXPECT_TRUE(present_from(60200).empty());
}

}  // namespace
}  // namespace tarnwheel
