#include "client/connected_server.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>

#include "client/client_error.h"
#include "client/fake_server.h"
#include "client/line_settings.h"
#include "client/remote_port.h"
#include "client/utf8.h"

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

struct ConnectedServer : testing::Test {
  connected_server Connect() const { return connected_server(L".", server.pipe()); }

  std::wstring OpenFailure(HRESULT outcome) {
    server.device->open_outcome = outcome;
    auto client = Connect();
    return Failure([&] { remote_port(client, 5); });
  }

  test::fake_server server;
};

TEST_F(ConnectedServer, NobodyListens) {
  EXPECT_EQ(Failure([] { connected_server(L".", L"client_test_no_such_pipe"); }),
            L"No server runs on this machine (0x80070002)");
}

TEST_F(ConnectedServer, BusyServerIsAskedAgain) {
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

TEST_F(ConnectedServer, BusyForTooLong) {
  const auto first = Connect();
  EXPECT_EQ(Failure([&] { Connect(); }), L"The server on this machine is busy (0x800700e7)");
}

TEST_F(ConnectedServer, CallWithoutReplyEndsAtItsLimit) {
  server.device->write_fails = true;
  auto client = Connect();
  const auto call = client.remote().Write({});
  const auto started = steady_clock::now();
  EXPECT_EQ(Failure([&] { client.wait(call, L"COM5", milliseconds(300)); }),
            L"COM5: no answer within 300 ms (0x800705b4)");
  EXPECT_GE(steady_clock::now() - started, milliseconds(290));
}

TEST_F(ConnectedServer, LimitEndsWithItsCall) {
  auto client = Connect();
  for (int call = 0; call < 200; ++call) {
    EXPECT_EQ(client.wait(client.remote().Write({}), L"COM5", milliseconds(2000)), S_OK);
  }
}

TEST_F(ConnectedServer, ServerThatGoesAwayEndsACallAtOnce) {
  server.device->write_fails = true;
  auto client = Connect();
  const auto call = client.remote().Write({});
  server.hang_up();
  const auto started = steady_clock::now();
  EXPECT_EQ(Failure([&] { client.wait(call, L"COM5", milliseconds(4000)); }),
            L"COM5: the server on this machine ended the connection (0x800704c7)");
  EXPECT_LT(steady_clock::now() - started, milliseconds(3000));
}

TEST_F(ConnectedServer, RefusedOpenIsExplained) {
  EXPECT_EQ(OpenFailure(E_ACCESSDENIED),
            L"COM5 is in use by another program or client, or is not shared (0x80070005)");
  server.accept();
  EXPECT_EQ(OpenFailure(static_cast<HRESULT>(0x80070020)),
            L"COM5 is in use by another program or client (0x80070020)");
  server.accept();
  // Of other errors the system's own words are shown, in its language.
  const std::wstring other = OpenFailure(static_cast<HRESULT>(0x8007045D));  // ERROR_IO_DEVICE
  EXPECT_TRUE(other.starts_with(L"COM5: ") && other.ends_with(L" (0x8007045d)"));
}

struct RemotePort : ConnectedServer {
  std::string ReadUntilQuiet(milliseconds limit) {
    const auto bytes = port.read_until_quiet(limit);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  // What the driver got with `code`, as T.
  template <class T>
  T Controlled(std::uint32_t code) const {
    T settings = {};
    for (const auto& call : server.device->controls) {
      if (call.code == code && call.input.size() == sizeof settings)
        std::memcpy(&settings, call.input.data(), sizeof settings);
    }
    return settings;
  }

  test::fake_device& device = *server.device;
  connected_server client = Connect();
  remote_port port{client, 5};
};

TEST_F(RemotePort, LineIsSetAsAsked) {
  port.set_line({{9600}, {STOP_BITS_2, EVEN_PARITY, 7}});
  EXPECT_EQ(Controlled<SERIAL_BAUD_RATE>(IOCTL_SERIAL_SET_BAUD_RATE).BaudRate, 9600u);
  const auto line = Controlled<SERIAL_LINE_CONTROL>(IOCTL_SERIAL_SET_LINE_CONTROL);
  EXPECT_EQ(line.StopBits, STOP_BITS_2);
  EXPECT_EQ(line.Parity, EVEN_PARITY);
  EXPECT_EQ(line.WordLength, 7);
}

TEST_F(RemotePort, OnlyTheTotalReadTimeoutIsSet) {
  port.set_read_slice(milliseconds(150));
  const auto timeouts = Controlled<SERIAL_TIMEOUTS>(IOCTL_SERIAL_SET_TIMEOUTS);
  EXPECT_EQ(timeouts.ReadTotalTimeoutConstant, 150u);
  EXPECT_EQ(timeouts.ReadIntervalTimeout + timeouts.ReadTotalTimeoutMultiplier +
                timeouts.WriteTotalTimeoutMultiplier + timeouts.WriteTotalTimeoutConstant,
            0u);
}

TEST_F(RemotePort, ReadsUntilTheLineIsQuiet) {
  device.coming = {{}, {}, to_utf8(L"one "), to_utf8(L"answer"), {}, to_utf8(L"another")};
  EXPECT_EQ(ReadUntilQuiet(milliseconds(4000)), "one answer");
}

TEST_F(RemotePort, ReadingEndsAtItsLimit) {
  EXPECT_EQ(ReadUntilQuiet(milliseconds(100)), "");
  device.always_more = true;
  EXPECT_NE(ReadUntilQuiet(milliseconds(100)), "");
}

TEST_F(RemotePort, FailedCallsAreReported) {
  device.outcome = static_cast<HRESULT>(0x800708CA);
  const auto is_reported = [](const std::wstring& message) {
    return message.starts_with(L"COM5: ") && message.ends_with(L" (0x800708ca)");
  };
  EXPECT_TRUE(is_reported(Failure([&] { port.set_line({}); })));
  EXPECT_TRUE(is_reported(Failure([&] { port.write({}); })));
  EXPECT_TRUE(is_reported(Failure([&] { ReadUntilQuiet(milliseconds(100)); })));
}

}  // namespace
}  // namespace tarnwheel::client
