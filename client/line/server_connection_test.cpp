#include "client/line/server_connection.h"

#include <gtest/gtest.h>

#include <future>

#include "tests/support/fake_server.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The message that `action` fails with; "" when it does not fail.
template <class Action>
std::wstring Failure(Action action) {
  try {
    action();
    return L"";
  } catch (const client_error& error) {
    return error.message();
  }
}

struct ServerConnection : testing::Test {
  server_connection Connect() const { return server_connection(L".", server.pipe()); }

  std::wstring OpenFailure(HRESULT outcome) {
    server.device->open_outcome = outcome;
    auto client = Connect();
    return Failure([&] { client.open_port(5); });
  }

  test::fake_server server;
};

TEST_F(ServerConnection, NobodyListens) {
  EXPECT_EQ(Failure([] { server_connection(L".", L"client_test_no_such_pipe"); }),
            L"No server runs on this machine (0x80070002)");
}

TEST_F(ServerConnection, BusyServerIsAskedAgain) {
  const auto first = Connect();  // takes the only instance
  const auto started = steady_clock::now();
  auto later = std::async(std::launch::async, [this] {
    ::Sleep(300);
    server.accept();
  });
  auto second = Connect();
  EXPECT_GE(steady_clock::now() - started, milliseconds(200));
  later.get();
  EXPECT_TRUE(second.wait(second.remote().EnumeratePorts(), L"").empty());
}

TEST_F(ServerConnection, BusyForTooLong) {
  const auto first = Connect();
  EXPECT_EQ(Failure([&] { Connect(); }), L"The server on this machine is busy (0x800700e7)");
}

TEST_F(ServerConnection, CallWithoutReplyEndsAtItsLimit) {
  server.device->write_fails = true;
  auto client = Connect();
  const auto call = client.remote().Write({});
  const auto started = steady_clock::now();
  EXPECT_EQ(Failure([&] { client.wait(call, L"COM5", milliseconds(300)); }),
            L"COM5: no answer within 300 ms (0x800705b4)");
  EXPECT_GE(steady_clock::now() - started, milliseconds(290));
}

TEST_F(ServerConnection, ServerThatGoesAwayEndsACallAtOnce) {
  server.device->write_fails = true;
  auto client = Connect();
  const auto call = client.remote().Write({});
  server.hang_up();
  const auto started = steady_clock::now();
  EXPECT_EQ(Failure([&] { client.wait(call, L"COM5", milliseconds(4000)); }),
            L"COM5: the server on this machine ended the connection (0x800704c7)");
  EXPECT_LT(steady_clock::now() - started, milliseconds(3000));
}

TEST_F(ServerConnection, RefusedOpenIsExplained) {
  EXPECT_EQ(OpenFailure(E_ACCESSDENIED),
            L"COM5 is in use by another program or client, or is not shared (0x80070005)");
  server.accept();
  server.device->ports = {{L"Listed", 5}};
  EXPECT_EQ(OpenFailure(E_ACCESSDENIED),
            L"COM5 is in use by another program or client (0x80070005)");
  server.accept();
  EXPECT_EQ(OpenFailure(static_cast<HRESULT>(0x80070020)),
            L"COM5 is in use by another program or client (0x80070020)");
  server.accept();
  // Of other errors the system's own words are shown, in its language.
  const std::wstring other = OpenFailure(static_cast<HRESULT>(0x8007045D));  // ERROR_IO_DEVICE
  EXPECT_TRUE(other.starts_with(L"COM5: ") && other.ends_with(L" (0x8007045d)"));
}

}  // namespace
}  // namespace tarnwheel::client
