// The list of ports, as registered with the system for the test.
#include <gtest/gtest.h>

#include <algorithm>

#include "server/test_ports.h"
#include "tests/raw_client.h"
#include "tests/server_process.h"

namespace system_test {
namespace {

using tarnwheel::test::test_port;

struct Port {
  std::wstring name;
  std::uint32_t number;

  bool operator==(const Port&) const = default;
};

// The machine may have ports of its own, so only those from COM200 on are the test's.
std::vector<Port> TestPorts(const Bytes& list) {
  std::vector<Port> ports;
  std::size_t at = 4;
  for (std::uint32_t rest = U32At(list, 0); rest != 0; --rest) {
    Port port;
    for (std::uint32_t units = U32At(list, at); units != 0; --units, at += 2)
      port.name += static_cast<wchar_t>(U16At(list, at + 4));
    port.number = U32At(list, at + 4);
    at += 8;
    if (port.number >= 200)
      ports.push_back(port);
  }
  EXPECT_EQ(at, list.size());
  return ports;
}

TEST(EnumeratePorts, NoPortsAreACountOfZero) {
  ServerProcess server(L"--share-ports 209");
  EXPECT_EQ(RawClient().Call(kEnumeratePorts, {}), U32(0));
  EXPECT_TRUE(server.Logs(L"INFO", L" is enumerating available ports"));
}

TEST(EnumeratePorts, SharedPortsAreRecordsOfNameAndNumber) {
  const test_port second(L"COM203", L"Gerät 203 ж");
  const test_port hidden(L"COM202", L"Hidden");
  const test_port first(L"COM201", L"A");
  ServerProcess server(L"--share-ports 204,203,201");
  EXPECT_EQ(RawClient().Call(kEnumeratePorts, {}),
            Join({U32(2), Text(L"A"), U32(201), Text(L"Gerät 203 ж"), U32(203)}));
}

TEST(EnumeratePorts, AllPortsComeSortedAndDuplicatesStay) {
  const test_port third(L"COM205", L"One");
  const test_port first(L"COM203", L"Name");
  const test_port fourth(L"COM205", L"Two");
  const test_port second(L"LPT204", std::nullopt);
  const test_port dropped(L"COM", L"No number");
  ServerProcess server;
  auto ports = TestPorts(RawClient().Call(kEnumeratePorts, {}));
  ASSERT_EQ(ports.size(), 4u);
  std::sort(ports.begin() + 2, ports.end(), [](auto& a, auto& b) { return a.name < b.name; });
  EXPECT_EQ(ports, (std::vector<Port>{{L"Name", 203}, {L"", 204}, {L"One", 205}, {L"Two", 205}}));
}

TEST(EnumeratePorts, EachCallSeesWhatIsThereThen) {
  ServerProcess server(L"--share-ports 203");
  RawClient client;
  {
    const test_port port(L"COM203", L"Comes and goes");
    EXPECT_EQ(U32At(client.Call(kEnumeratePorts, {}), 0), 1u);
  }
  EXPECT_EQ(client.Call(kEnumeratePorts, {}), U32(0));
}

}  // namespace
}  // namespace system_test
