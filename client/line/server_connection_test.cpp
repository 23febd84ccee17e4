#include "client/line/server_connection.h"

#include <gtest/gtest.h>

#include <future>

#include "tests/support/fake_server.h"

namespace tarnwheel::client {
namespace {

struct ServerConnection : testing::Test {
  // The failure to open COM5 on a connection of its own; empty on success.
  std::wstring Opened(HANDLE stop = nullptr) const {
    return test::failure_of([&] { server_connection(L".", server.pipe).open_port(5, stop); });
  }

  test::fake_server server;
};

TEST_F(ServerConnection, BusyServerIsAskedAgainForAWhile) {
  const server_connection first(L".", server.pipe);  // takes the only instance
  EXPECT_EQ(Opened(), L"The server on this machine is busy (0x800700e7)");
  const auto later = std::async(std::launch::async, [this] {
    ::Sleep(200);
    server.accept();
  });
  EXPECT_EQ(Opened(), L"");
}

TEST_F(ServerConnection, UserCanAbortSlowOpen) {
  server.device->unanswered = {test::fake_device::kOpen};
  const Tamrin::unique_handle stop(::CreateWaitableTimerW(nullptr, TRUE, nullptr));
  constexpr LARGE_INTEGER kSoon = {.QuadPart = -2'000'000};  // in 200 ms
  EXPECT_TRUE(::SetWaitableTimer(stop.get(), &kSoon, 0, nullptr, nullptr, FALSE));
  EXPECT_EQ(Opened(stop.get()),
            L"COM5: the server on this machine ended the connection (0x800704c7)");
}

// Drivers of Windows answer like this, and so does the server when a client may not use the port.
TEST_F(ServerConnection, RefusedPortThatIsListedIsInUse) {
  server.device->outcome = E_ACCESSDENIED;
  EXPECT_EQ(Opened(), L"COM5 is in use by another program or client (0x80070005)");
}

}  // namespace
}  // namespace tarnwheel::client
