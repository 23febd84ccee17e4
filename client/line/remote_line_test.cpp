#include "client/line/remote_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <mutex>

#include "console/utf8.h"
#include "tests/support/fake_server.h"
#include "tests/support/unit/testing.h"

namespace tarnwheel::client {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing_support::eventually;
using bytes = std::vector<std::byte>;

constexpr line_settings kSettings = {{9600}, {STOP_BITS_2, EVEN_PARITY, 7}, flow_control::xon_xoff};

template <class T>
std::wstring Failure(const ostra::future<T>& future) {
  try {
    future.get();
    return L"";
  } catch (const client_error& error) {
    return error.message();
  }
}

// Remembers what it hears; may keep the next read waiting.
class Recorder final : public line_receiver {
 public:
  ostra::future<void> received(bytes data) override {
    {
      const std::lock_guard guard(lock_);
      text_.append(reinterpret_cast<const char*>(data.data()), data.size());
    }
    return ready.wait();
  }
  void changed(std::uint32_t events) override { events_ |= events; }
  void ended(const client_error& reason) override {
    const std::lock_guard guard(lock_);
    ends_ += reason.message() + L"\n";
  }

  bool Hears(const std::string& text) {
    return eventually([&] {
      const std::lock_guard guard(lock_);
      return text_ == text;
    });
  }
  bool Sees(std::uint32_t events) {
    return eventually([&] { return events_.load() == events; });
  }
  std::wstring Ends() {
    const std::lock_guard guard(lock_);
    return ends_;
  }

  ostra::async_event ready{true};

 private:
  std::atomic<std::uint32_t> events_ = 0;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::string text_;
  std::wstring ends_;
};

struct RemoteLine : testing::Test {
  void Start(std::uint32_t events = 0) { line.start(recorder, events); }
  bool Ends() {
    return eventually([&] { return !recorder.Ends().empty(); });
  }

  // What the driver got last with `code`.
  template <class T>
  T Controlled(std::uint32_t code) const {
    T settings = {};
    for (const auto& call : device.controls()) {
      if (call.code == code && call.input.size() == sizeof settings)
        std::memcpy(&settings, call.input.data(), sizeof settings);
    }
    return settings;
  }

  test::fake_server server;
  test::fake_device& device = *server.device;
  Recorder recorder;
  remote_line line{{L".", 5, kSettings, server.pipe()}};
};

TEST_F(RemoteLine, LineIsSetAsAskedAndKeepsItsSignals) {
  EXPECT_EQ(Controlled<SERIAL_BAUD_RATE>(IOCTL_SERIAL_SET_BAUD_RATE).BaudRate, 9600u);
  const auto control = Controlled<SERIAL_LINE_CONTROL>(IOCTL_SERIAL_SET_LINE_CONTROL);
  EXPECT_EQ(std::memcmp(&control, &kSettings.control, sizeof control), 0);
  EXPECT_EQ(Controlled<SERIAL_CHARS>(IOCTL_SERIAL_SET_CHARS).XoffChar, 0x13);
  const auto timeouts = Controlled<SERIAL_TIMEOUTS>(IOCTL_SERIAL_SET_TIMEOUTS);
  EXPECT_LT(timeouts.ReadIntervalTimeout - 1, 100u);
  EXPECT_EQ(timeouts.ReadTotalTimeoutMultiplier, 0u);
  EXPECT_LT(timeouts.ReadTotalTimeoutConstant - 1, MAXDWORD - 1);

  const auto flow_is = [&](DWORD handshake, DWORD replace) {
    const auto flow = Controlled<SERIAL_HANDFLOW>(IOCTL_SERIAL_SET_HANDFLOW);
    EXPECT_EQ(flow.ControlHandShake, handshake);
    EXPECT_EQ(flow.FlowReplace, replace);
  };
  auto& controls = line.controls();
  flow_is(SERIAL_DTR_CONTROL, SERIAL_RTS_CONTROL | SERIAL_AUTO_TRANSMIT | SERIAL_AUTO_RECEIVE);
  controls.set_dtr(false).get();
  controls.set_flow_control(flow_control::rts_cts).get();
  flow_is(SERIAL_CTS_HANDSHAKE, SERIAL_RTS_HANDSHAKE);
  controls.set_rts(false).get();  // is the driver's now
  EXPECT_EQ(device.count(IOCTL_SERIAL_CLR_RTS), 0u);
  controls.set_flow_control(flow_control::none).get();
  flow_is(0, 0);
}

TEST_F(RemoteLine, NothingIsReadForABusyReceiver) {
  recorder.ready.reset();
  Start();
  device.send("first");
  EXPECT_TRUE(recorder.Hears("first"));
  const std::size_t reads = device.reads;
  device.send(" second");
  line.controls().modem_status().get();  // goes behind a read that had been sent
  EXPECT_EQ(device.reads, reads);
  recorder.ready.set();
  EXPECT_TRUE(recorder.Hears("first second"));
}

TEST_F(RemoteLine, DeviceThatDoesNotCountIsReadByteByByte) {
  device.unanswered = {IOCTL_SERIAL_GET_COMMSTATUS};
  Start();
  device.send("slow");
  EXPECT_TRUE(recorder.Hears("slow"));
}

TEST_F(RemoteLine, EventsAreHandedOn) {
  Start(SERIAL_EV_CTS | SERIAL_EV_DSR);
  device.raise(SERIAL_EV_CTS);
  EXPECT_TRUE(recorder.Sees(SERIAL_EV_CTS));
  EXPECT_EQ(Controlled<std::uint32_t>(IOCTL_SERIAL_SET_WAIT_MASK),
            DWORD(SERIAL_EV_CTS | SERIAL_EV_DSR));
  device.raise(SERIAL_EV_DSR);
  EXPECT_TRUE(recorder.Sees(SERIAL_EV_CTS | SERIAL_EV_DSR));
}

TEST_F(RemoteLine, DeviceWithoutEventsIsAskedOnce) {
  device.has_events = false;
  Start(SERIAL_EV_CTS);
  EXPECT_TRUE(eventually([&] { return device.count(IOCTL_SERIAL_WAIT_ON_MASK) == 1; }));
  for (int call = 0; call < 20; ++call)
    line.controls().modem_status().get();
  EXPECT_EQ(device.count(IOCTL_SERIAL_WAIT_ON_MASK), 1u);
}

TEST_F(RemoteLine, ErrorsFoundByAReadAreEvents) {
  SERIAL_STATUS status = {};
  status.Errors = SERIAL_ERROR_PARITY;
  const auto output = std::as_bytes(std::span(&status, 1));
  device.outputs[IOCTL_SERIAL_GET_COMMSTATUS] = {output.begin(), output.end()};
  Start();
  device.send("x");
  EXPECT_TRUE(recorder.Sees(SERIAL_EV_ERR));
  EXPECT_EQ(line.take_errors().get(), DWORD(SERIAL_ERROR_PARITY));
}

TEST_F(RemoteLine, UnansweredControlFailsAloneAndIsNotAskedAgain) {
  device.unanswered = {IOCTL_SERIAL_SET_DTR, IOCTL_SERIAL_SET_BAUD_RATE};
  Start();
  const auto start = steady_clock::now();
  auto& controls = line.controls();
  const auto rate = controls.set_baud_rate(1);  // has worked once: a rate that the device lacks
  EXPECT_EQ(Failure(controls.set_dtr(true)), L"COM5: no answer within 2000 ms (0x800705b4)");
  EXPECT_GE(steady_clock::now() - start, milliseconds(1990));
  EXPECT_EQ(Failure(controls.set_dtr(false)),
            L"COM5: the device does not answer this request (0x80070032)");
  EXPECT_NE(Failure(rate), L"");
  device.unanswered = {};
  EXPECT_EQ(Failure(controls.set_baud_rate(9600)), L"");
  device.send("still alive");
  EXPECT_TRUE(recorder.Hears("still alive"));
}

TEST_F(RemoteLine, WritesGoOutWholeInOrderAndBounded) {
  Start();
  bytes all;
  device.hold_writes();
  ostra::future<void> room;
  for (unsigned piece = 0; !room.valid() || room.is_complete(); ++piece) {
    const bytes data(piece * 97, std::byte(piece));
    all.insert(all.end(), data.begin(), data.end());
    room = line.write(data);
    ASSERT_LT(all.size(), 70'000u);
  }
  EXPECT_GT(all.size(), 64u * 1024);
  device.release_writes();
  room.get();
  line.drained().get();
  EXPECT_EQ(device.written(), all);
}

TEST_F(RemoteLine, PurgeDropsWhatIsOnItsWay) {
  Start();
  device.hold_writes();
  line.write(bytes(20'000)).get();
  line.purge(purged::output).get();
  line.drained().get();
  EXPECT_EQ(Controlled<ULONG>(IOCTL_SERIAL_PURGE),
            DWORD(SERIAL_PURGE_TXABORT | SERIAL_PURGE_TXCLEAR));
  device.release_writes();  // the piece that this device should have aborted
  EXPECT_TRUE(eventually([&] { return !device.written().empty(); }));
  line.write(console::to_utf8(L"next")).get();
  line.drained().get();
  EXPECT_EQ(device.written().size(), 4096u + 4u);
}

TEST_F(RemoteLine, WriteThatFailsEndsTheLine) {
  Start();
  device.outcome = static_cast<HRESULT>(0x800708CA);
  line.write(console::to_utf8(L"x")).get();
  EXPECT_TRUE(Ends());
  EXPECT_TRUE(recorder.Ends().ends_with(L" (0x800708ca)\n"));
  line.write(bytes(200'000)).get();  // goes nowhere, and keeps nobody
  line.drained().get();
}

TEST_F(RemoteLine, ReadThatFailsEndsTheLine) {
  device.read_fails = true;
  server.accept();
  remote_line impatient({.server = L".",
                         .port = 5,
                         .settings = kSettings,
                         .pipe = server.pipe(),
                         .limits = {milliseconds(100), milliseconds(200)}});
  EXPECT_GE(device.count(IOCTL_SERIAL_SET_QUEUE_SIZE), 1u);
  impatient.start(recorder, 0);
  EXPECT_TRUE(Ends());
  EXPECT_EQ(recorder.Ends(), L"COM5: no answer within 300 ms (0x800705b4)\n");
}

TEST_F(RemoteLine, ServerThatGoesAwayEndsTheLineOnce) {
  Start(SERIAL_EV_CTS);
  device.hold_writes();
  line.write(console::to_utf8(L"x")).get();
  server.hang_up();
  EXPECT_TRUE(Ends());
  line.drained().get();
  EXPECT_EQ(recorder.Ends(),
            L"COM5: the server on this machine ended the connection (0x800704c7)\n");
}

TEST_F(RemoteLine, OwnEndIsNotTold) {
  device.unanswered = {IOCTL_SERIAL_SET_DTR};
  {
    server.accept();
    remote_line second({L".", 5, kSettings, server.pipe()});
    second.start(recorder, SERIAL_EV_CTS);
    device.hold_writes();
    second.write(console::to_utf8(L"x")).get();
    static_cast<void>(second.controls().set_dtr(true));
  }
  EXPECT_EQ(recorder.Ends(), L"");
  EXPECT_EQ(device.written().size(), 0u);
}

}  // namespace
}  // namespace tarnwheel::client
