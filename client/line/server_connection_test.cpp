#include "client/line/server_connection.h"

#include <gtest/gtest.h>

#include <future>

#include "tests/support/fake_server.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::fake_device;

struct ServerConnection : testing::Test {
  server_connection Connect() const { return server_connection(L".", server.pipe); }

  // What becomes of opening COM5 with a connection of its own.
  std::wstring Opened(HANDLE stop = nullptr) const {
    return test::failure_of([&] { return Connect().open_port(5, stop); });
  }

  // Does something to the server a little later.
  template <class Action>
  static std::future<void> Later(Action action) {
    return std::async(std::launch::async, [action] {
      ::Sleep(200);
      action();
    });
  }

  test::fake_server server;
  fake_device& device = *server.device;
};

TEST_F(ServerConnection, BusyServerIsAskedAgainForAWhile) {
  const auto first = Connect();  // takes the only instance
  EXPECT_EQ(Opened(), L"The server on this machine is busy (0x800700e7)");
  const auto later = Later([this] { server.accept(); });
  EXPECT_EQ(Opened(), L"");
}

TEST_F(ServerConnection, CallWithoutReplyEndsAtItsLimitOrWithTheServer) {
  device.unanswered = {device.kWrite};
  auto client = Connect();
  const auto started = steady_clock::now();
  const auto call = [&](milliseconds limit) {
    return test::failure_of([&] { return client.wait(client.remote().Write({}), L"COM5", limit); });
  };
  EXPECT_EQ(call(milliseconds(300)), L"COM5: no answer within 300 ms (0x800705b4)");
  EXPECT_GE(steady_clock::now() - started, milliseconds(290));
  const auto later = Later([this] { server.hang_up(); });
  EXPECT_EQ(call(milliseconds(60'000)),
            L"COM5: the server on this machine ended the connection (0x800704c7)");
  EXPECT_LT(steady_clock::now() - started, milliseconds(30'000));
}

TEST_F(ServerConnection, SlowOpenEndsWithTheUsersWish) {
  device.unanswered = {device.kOpen};
  const Tamrin::unique_handle stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const auto started = steady_clock::now();
  const auto later = Later([&stop] { ::SetEvent(stop.get()); });
  EXPECT_EQ(Opened(stop.get()),
            L"COM5: the server on this machine ended the connection (0x800704c7)");
  EXPECT_GE(steady_clock::now() - started, milliseconds(190));
}

// The other refusals are those of a real server.
TEST_F(ServerConnection, RefusalOfASharedPortAndAnUnknownOneAreExplained) {
  device.ports = {{L"x", 5}};
  device.open_outcome = E_ACCESSDENIED;
  EXPECT_EQ(Opened(), L"COM5 is in use by another program or client (0x80070005)");
  server.accept();
  device.open_outcome = static_cast<HRESULT>(0x8007045D);
  const std::wstring message = Opened();  // with the system's words, in its language
  EXPECT_TRUE(message.starts_with(L"COM5") && message.ends_with(L" (0x8007045d)")) << message;
}

}  // namespace
}  // namespace tarnwheel::client
