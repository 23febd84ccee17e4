#include "client/line/remote_line.h"

#include <gtest/gtest.h>

#include <mutex>

#include "tests/support/fake_server.h"
#include "tests/support/unit/testing.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;
using test::bytes;
using testing_support::eventually;

constexpr line_settings kSettings = {{9600}, {STOP_BITS_2, EVEN_PARITY, 7}, flow_control::xon_xoff};

// A line whose receiver is the test.
struct RemoteLine : testing::Test, line_receiver {
  ostra::future<void> received(bytes data) override {
    Note({reinterpret_cast<const char*>(data.data()), data.size()});
    co_return;
  }
  void changed(std::uint32_t events) override { Note("<" + std::to_string(events) + ">"); }
  void ended(const client_error& reason) override {
    Note("!" + std::string(reason.message().begin(), reason.message().end()));
  }
  void Note(const std::string& text) {
    const std::lock_guard guard(lock);
    heard += text;
  }

  // Waits until the data, <events> and !end noted are these.
  bool Hears(const std::string& text) {
    return eventually([&] {
      const std::lock_guard guard(lock);
      return heard == text;
    });
  }

  void Start(std::uint32_t events = 0) { line.start(*this, events); }
  void Write(std::size_t size) { line.write(bytes(size)).get(); }
  std::wstring Failure(ostra::future<void> control) {
    return test::failure_of([&] { control.get(); });
  }

  ostra::srw_lock lock;
  std::string heard;  // guarded by lock
  test::fake_server server;
  test::fake_device& device = *server.device;
  remote_line line{{L".", 5, kSettings, server.pipe}};
  line_controls& controls = line.controls();
};

// Queues, time-outs, rate, 7E2, Xon and Xoff, flow control.
TEST_F(RemoteLine, LineIsSetAsAsked) {
  EXPECT_EQ(device.take_calls(),
            " [2 0 0 1 0 0 0 1 0] [7 20 0 0 0 0 0 0 0 224 46 0 0 0 0 0 0 0 0 0 0] [1 128 37 0 0] "
            "[3 2 2 7] [23 0 0 0 0 17 19] [25 1 0 0 0 67 0 0 0 0 4 0 0 0 4 0 0]");
}

TEST_F(RemoteLine, DeviceWithoutEventsIsAskedOnce) {
  Start(SERIAL_EV_CTS);
  for (int call = 0; call < 20; ++call)
    controls.modem_status().get();
  const std::string calls = device.take_calls();
  EXPECT_NE(calls.find(" [18]"), std::string::npos);
  EXPECT_EQ(calls.find(" [18]"), calls.rfind(" [18]"));
}

TEST_F(RemoteLine, ErrorsFoundByAReadAreEvents) {
  device.errors = SERIAL_ERROR_PARITY;
  Start();
  device.send("x");
  EXPECT_TRUE(Hears("<128>x"));
  EXPECT_EQ(line.take_errors().get(), DWORD(SERIAL_ERROR_PARITY));
}

TEST_F(RemoteLine, UnansweredControlFailsAloneAndIsNotAskedAgain) {
  device.unanswered = {IOCTL_SERIAL_SET_DTR, IOCTL_SERIAL_SET_BAUD_RATE,
                       IOCTL_SERIAL_GET_COMMSTATUS};
  Start();
  const auto rate = controls.set_baud_rate(1);  // another rate was accepted before
  EXPECT_EQ(Failure(controls.set_dtr(true)), L"COM5: no answer within 2000 ms (0x800705b4)");
  EXPECT_EQ(Failure(controls.set_dtr(false)),
            L"COM5: the device does not answer this request (0x80070032)");
  EXPECT_EQ(Failure(rate), L"COM5: the device refuses 1 baud (0x800705b4)");
  device.unanswered = {IOCTL_SERIAL_GET_COMMSTATUS};
  EXPECT_EQ(Failure(controls.set_baud_rate(9600)), L"");
  device.send("byte by byte");  // the device does not report how many there are
  EXPECT_TRUE(Hears("byte by byte"));
}

TEST_F(RemoteLine, WritesAreBoundedAndAPurgeDropsWhatIsOnItsWay) {
  Start();
  device.may_write.reset();
  ostra::future<void> room;
  std::size_t size = 0;
  do {
    ASSERT_LT(size += 5000, 80'000u);
    room = line.write(bytes(5000));
  } while (room.is_complete());
  EXPECT_GT(size, 64u * 1024);
  line.purge(purged::output).get();
  room.get();
  line.drained().get();
  EXPECT_TRUE(device.take_calls().ends_with(" [19 5 0 0 0]"));
  device.may_write.set();  // also for the piece that a real device would have aborted
  Write(4);
  line.drained().get();
  EXPECT_TRUE(eventually([&] { return device.written().size() == 4096u + 4u; }));
}

TEST_F(RemoteLine, WriteThatFailsEndsTheLine) {
  device.outcome = static_cast<HRESULT>(0xA0000001);
  Start();
  Write(1);
  EXPECT_TRUE(Hears("!COM5: failed (0xa0000001)"));
  Write(200'000);  // is discarded, and completes at once
  line.drained().get();
}

TEST_F(RemoteLine, ReadThatFailsEndsTheLine) {
  device.unanswered = {device.kRead};
  server.accept();
  remote_line impatient(
      {L".", 5, kSettings, server.pipe, nullptr, {milliseconds(100), milliseconds(200)}});
  impatient.start(*this, 0);
  EXPECT_TRUE(Hears("!COM5: no answer within 300 ms (0x800705b4)"));
}

// With calls of every kind in flight. The line that its owner ends first reports nothing.
TEST_F(RemoteLine, ServerThatGoesAwayEndsTheLineOnce) {
  device.unanswered = {IOCTL_SERIAL_SET_DTR, IOCTL_SERIAL_WAIT_ON_MASK};
  device.may_write.reset();
  {
    server.accept();
    remote_line own({L".", 5, kSettings, server.pipe});
    own.start(*this, SERIAL_EV_CTS);
    own.write(bytes(1)).get();
    static_cast<void>(own.controls().set_dtr(true));
  }
  Start(SERIAL_EV_CTS);
  const auto room = line.write(bytes(80'000));
  EXPECT_FALSE(room.is_complete() || line.has_ended());
  server.hang_up();
  room.get();
  EXPECT_TRUE(line.has_ended());
  line.drained().get();
  EXPECT_TRUE(Hears("!COM5: the server on this machine ended the connection (0x800704c7)"));
}

}  // namespace
}  // namespace tarnwheel::client
