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

  test::fake_server server;
};

TEST_F(ServerConnection, BusyServerIsAskedAgainForAWhile) {
  const auto first = Connect();  // takes the only instance
  EXPECT_EQ(Failure([&] { Connect(); }), L"The server on this machine is busy (0x800700e7)");
  auto later = std::async(std::launch::async, [this] {
    ::Sleep(300);
    server.accept();
  });
  EXPECT_EQ(Failure([&] { Connect(); }), L"");
  later.get();
}

TEST_F(ServerConnection, CallWithoutReplyEndsAtItsLimitOrWithTheServer) {
  server.device->write_fails = true;
  const auto client = std::make_unique<server_connection>(L".", server.pipe());
  const auto started = steady_clock::now();
  const auto call = [&](milliseconds limit) {
    return Failure([&] { client->wait(client->remote().Write({}), L"COM5", limit); });
  };
  EXPECT_EQ(call(milliseconds(300)), L"COM5: no answer within 300 ms (0x800705b4)");
  EXPECT_GE(steady_clock::now() - started, milliseconds(290));
  auto later = std::async(std::launch::async, [this] {
    ::Sleep(100);
    server.hang_up();
  });
  EXPECT_EQ(call(milliseconds(60'000)),
            L"COM5: the server on this machine ended the connection (0x800704c7)");
  EXPECT_LT(steady_clock::now() - started, milliseconds(30'000));
}

TEST_F(ServerConnection, SlowOpenEndsWithTheUsersWish) {
  server.device->open_blocks = true;
  auto client = Connect();
  const Tamrin::unique_handle stop(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  auto opened = std::async(std::launch::async,
                           [&] { return Failure([&] { client.open_port(5, stop.get()); }); });
  EXPECT_EQ(opened.wait_for(milliseconds(200)), std::future_status::timeout);
  ::SetEvent(stop.get());
  EXPECT_EQ(opened.get(), L"COM5: the server on this machine ended the connection (0x800704c7)");
}

TEST_F(ServerConnection, RefusalsAreExplained) {
  EXPECT_EQ(Failure([] { server_connection(L".", L"client_test_no_such_pipe"); }),
            L"No server runs on this machine (0x80070002)");
  const struct {
    HRESULT outcome;
    std::vector<tether::port_record> ports;
    std::wstring message;  // of others the system's own words are shown, in its language
  } rows[] = {
      {E_ACCESSDENIED,
       {},
       L" is in use by another program or client, or is not shared (0x80070005)"},
      {E_ACCESSDENIED, {{L"x", 5}}, L" is in use by another program or client (0x80070005)"},
      {HRESULT(0x80070020), {}, L" is in use by another program or client (0x80070020)"},
      {HRESULT(0x8007045D), {}, L" (0x8007045d)"},
  };
  for (const auto& row : rows) {
    server.device->open_outcome = row.outcome;
    server.device->ports = row.ports;
    auto client = Connect();
    const std::wstring message = Failure([&] { client.open_port(5); });
    EXPECT_TRUE(message.starts_with(L"COM5") && message.ends_with(row.message)) << message;
    server.accept();
  }
}

}  // namespace
}  // namespace tarnwheel::client
