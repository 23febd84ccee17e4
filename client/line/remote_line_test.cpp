#include "client/line/remote_line.h"

#include <gtest/gtest.h>

#include <cstring>
#include <mutex>

#include "async/test_support.h"
#include "client/line/client_error.h"
#include "console/utf8.h"
#include "tests/support/fake_server.h"

namespace tarnwheel::client {
namespace {

using ostra::test::eventually;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

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
  ostra::future<void> received(std::vector<std::byte> bytes) override {
    const std::lock_guard guard(lock_);
    text_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    ostra::promise<void> taken;
    auto result = taken.get_future();
    if (busy_)
      taken_ = std::move(taken);
    else
      taken.set_value();
    return result;
  }
  void changed(std::uint32_t events) override { events_ |= events; }
  void ended(const client_error& reason) override {
    const std::lock_guard guard(lock_);
    ends_.push_back(reason.message());
  }

  void BeBusy() { busy_ = true; }
  void Proceed() {
    busy_ = false;
    std::optional<ostra::promise<void>> taken;
    {
      const std::lock_guard guard(lock_);
      taken = std::exchange(taken_, std::nullopt);
    }
    if (taken)
      taken->set_value();
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
  std::vector<std::wstring> Ends() {
    const std::lock_guard guard(lock_);
    return ends_;
  }

 private:
  std::atomic<bool> busy_ = false;
  std::atomic<std::uint32_t> events_ = 0;

  // Guarded by lock_.
  ostra::srw_lock lock_;
  std::string text_;
  std::vector<std::wstring> ends_;
  std::optional<ostra::promise<void>> taken_;
};

struct RemoteLine : testing::Test {
  void Start(std::uint32_t events = 0) { line.start(recorder, events); }
  void Comes(const char* text) { device.send(std::as_bytes(std::span(text, std::strlen(text)))); }

  bool IsWritten(const std::vector<std::byte>& bytes) {
    return eventually([&] { return device.written() == bytes; });
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
  remote_line line{L".", 5, server.pipe()};
};

TEST_F(RemoteLine, LineIsSetAsAsked) {
  line.set_line({{9600}, {STOP_BITS_2, EVEN_PARITY, 7}, flow_control::xon_xoff}).get();
  EXPECT_EQ(Controlled<SERIAL_BAUD_RATE>(IOCTL_SERIAL_SET_BAUD_RATE).BaudRate, 9600u);
  const auto control = Controlled<SERIAL_LINE_CONTROL>(IOCTL_SERIAL_SET_LINE_CONTROL);
  EXPECT_EQ(control.StopBits, STOP_BITS_2);
  EXPECT_EQ(control.Parity, EVEN_PARITY);
  EXPECT_EQ(control.WordLength, 7);
  const auto flow = Controlled<SERIAL_HANDFLOW>(IOCTL_SERIAL_SET_HANDFLOW);
  EXPECT_EQ(flow.ControlHandShake, DWORD(SERIAL_DTR_CONTROL));
  EXPECT_EQ(flow.FlowReplace,
            DWORD(SERIAL_RTS_CONTROL | SERIAL_AUTO_TRANSMIT | SERIAL_AUTO_RECEIVE));
  EXPECT_EQ(Controlled<SERIAL_CHARS>(IOCTL_SERIAL_SET_CHARS).XoffChar, 0x13);
}

TEST_F(RemoteLine, FlowControlKeepsTheLinesAsTheyWereSet) {
  line.controls().set_dtr(false).get();
  line.set_flow_control(flow_control::rts_cts).get();
  auto flow = Controlled<SERIAL_HANDFLOW>(IOCTL_SERIAL_SET_HANDFLOW);
  EXPECT_EQ(flow.ControlHandShake, DWORD(SERIAL_CTS_HANDSHAKE));
  EXPECT_EQ(flow.FlowReplace, DWORD(SERIAL_RTS_HANDSHAKE));
  line.controls().set_rts(false).get();  // is the driver's now
  EXPECT_EQ(device.count(IOCTL_SERIAL_CLR_RTS), 0u);
  line.set_flow_control(flow_control::none).get();
  flow = Controlled<SERIAL_HANDFLOW>(IOCTL_SERIAL_SET_HANDFLOW);
  EXPECT_EQ(flow.ControlHandShake + flow.FlowReplace, 0u);
}

TEST_F(RemoteLine, BytesAreHandedOnAsTheyCome) {
  Start();
  Comes("one");
  EXPECT_TRUE(recorder.Hears("one"));
  Comes(" and two");
  EXPECT_TRUE(recorder.Hears("one and two"));
  const auto timeouts = Controlled<SERIAL_TIMEOUTS>(IOCTL_SERIAL_SET_TIMEOUTS);
  EXPECT_EQ(timeouts.ReadIntervalTimeout, MAXDWORD);
  EXPECT_EQ(timeouts.ReadTotalTimeoutMultiplier, MAXDWORD);
  EXPECT_GT(timeouts.ReadTotalTimeoutConstant, 0u);
  EXPECT_LT(timeouts.ReadTotalTimeoutConstant, MAXDWORD);
}

TEST_F(RemoteLine, NothingIsReadForABusyReceiver) {
  recorder.BeBusy();
  Start();
  Comes("first");
  EXPECT_TRUE(recorder.Hears("first"));
  const auto reads = device.reads();
  Comes(" second");
  line.controls().modem_status().get();  // goes behind a read that had been sent
  EXPECT_EQ(device.reads(), reads);
  recorder.Proceed();
  EXPECT_TRUE(recorder.Hears("first second"));
}

TEST_F(RemoteLine, ByteByByteWhenTheDeviceDoesNotCount) {
  device.unanswered = {IOCTL_SERIAL_GET_COMMSTATUS};
  Start();
  Comes("slow");
  EXPECT_TRUE(recorder.Hears("slow"));
}

TEST_F(RemoteLine, EventsAreHandedOn) {
  Start(SERIAL_EV_CTS | SERIAL_EV_DSR);
  EXPECT_TRUE(eventually([&] { return device.count(IOCTL_SERIAL_WAIT_ON_MASK) == 1; }));
  EXPECT_EQ(Controlled<std::uint32_t>(IOCTL_SERIAL_SET_WAIT_MASK),
            DWORD(SERIAL_EV_CTS | SERIAL_EV_DSR));
  device.raise(SERIAL_EV_CTS);
  EXPECT_TRUE(recorder.Sees(SERIAL_EV_CTS));
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
  const auto bytes = std::as_bytes(std::span(&status, 1));
  device.outputs[IOCTL_SERIAL_GET_COMMSTATUS] = {bytes.begin(), bytes.end()};
  Start();
  Comes("x");
  EXPECT_TRUE(recorder.Sees(SERIAL_EV_ERR));
  EXPECT_EQ(line.take_errors().get(), DWORD(SERIAL_ERROR_PARITY));
}

TEST_F(RemoteLine, UnansweredControlFailsAloneAndIsNotAskedAgain) {
  device.unanswered = {IOCTL_SERIAL_SET_DTR};
  Start();
  const auto start = steady_clock::now();
  EXPECT_EQ(Failure(line.controls().set_dtr(true)), L"COM5: no answer within 2000 ms (0x800705b4)");
  EXPECT_GE(steady_clock::now() - start, milliseconds(1990));
  EXPECT_EQ(Failure(line.controls().set_dtr(true)),
            L"COM5: the device does not answer this request (0x80070032)");
  EXPECT_LT(steady_clock::now() - start, milliseconds(3000));
  EXPECT_EQ(device.count(IOCTL_SERIAL_SET_DTR), 1u);
  Comes("still alive");
  EXPECT_TRUE(recorder.Hears("still alive"));
}

// A baud rate that the device does not have, say.
TEST_F(RemoteLine, ControlThatOnceWorkedIsAskedAgain) {
  line.set_baud_rate(9600).get();
  device.unanswered = {IOCTL_SERIAL_SET_BAUD_RATE};
  EXPECT_NE(Failure(line.set_baud_rate(1)), L"");
  device.unanswered = {};
  EXPECT_EQ(Failure(line.set_baud_rate(9600)), L"");
}

TEST_F(RemoteLine, WritesGoOutWholeAndInOrder) {
  Start();
  std::vector<std::byte> all;
  for (unsigned piece = 0; piece < 200; ++piece) {
    const std::vector<std::byte> bytes(piece * 7, std::byte(piece));
    all.insert(all.end(), bytes.begin(), bytes.end());
    line.write(bytes).get();
  }
  line.drained().get();
  EXPECT_EQ(device.written(), all);
}

TEST_F(RemoteLine, QueueOfWritesIsBounded) {
  Start();
  device.hold_writes();
  const std::vector<std::byte> piece(16 * 1024, std::byte(1));
  std::size_t queued = 0;
  auto room = line.write(piece);
  for (; room.is_complete() && queued < 10; ++queued)
    room = line.write(piece);
  EXPECT_EQ(queued, 4u);
  device.release_writes();
  room.get();
  line.drained().get();
  EXPECT_EQ(device.written().size(), (queued + 1) * piece.size());
}

TEST_F(RemoteLine, PurgeDropsWhatIsOnItsWay) {
  Start();
  device.hold_writes();
  line.write(std::vector<std::byte>(20'000)).get();
  line.purge(purged::output).get();
  line.drained().get();
  EXPECT_EQ(Controlled<ULONG>(IOCTL_SERIAL_PURGE),
            DWORD(SERIAL_PURGE_TXABORT | SERIAL_PURGE_TXCLEAR));
  const auto before = device.written().size();
  device.release_writes();  // the piece that this device should have aborted
  EXPECT_TRUE(eventually([&] { return device.written().size() > before; }));
  line.write(console::to_utf8(L"next")).get();
  line.drained().get();
  EXPECT_EQ(device.written().size(), 4096u + 4u);
}

TEST_F(RemoteLine, WriteThatFailsEndsTheLine) {
  Start();
  device.outcome = static_cast<HRESULT>(0x800708CA);
  line.write(console::to_utf8(L"x")).get();
  EXPECT_TRUE(eventually([&] { return recorder.Ends().size() == 1; }));
  EXPECT_TRUE(recorder.Ends()[0].ends_with(L" (0x800708ca)"));
  line.write(std::vector<std::byte>(200'000)).get();  // goes nowhere, and keeps nobody
  line.drained().get();
}

TEST_F(RemoteLine, ServerThatGoesAwayEndsTheLineOnce) {
  Start(SERIAL_EV_CTS);
  device.hold_writes();
  line.write(console::to_utf8(L"x")).get();
  server.hang_up();
  EXPECT_TRUE(eventually([&] { return recorder.Ends().size() == 1; }));
  EXPECT_EQ(recorder.Ends()[0],
            L"COM5: the server on this machine ended the connection (0x800704c7)");
  line.drained().get();
}

TEST_F(RemoteLine, OwnEndIsNotTold) {
  device.unanswered = {IOCTL_SERIAL_SET_DTR};
  {
    Recorder other;
    server.accept();
    remote_line second(L".", 5, server.pipe());
    second.start(other, SERIAL_EV_CTS);
    device.hold_writes();
    second.write(console::to_utf8(L"x")).get();
    static_cast<void>(second.controls().set_dtr(true));
    EXPECT_EQ(other.Ends().size(), 0u);
  }
  EXPECT_EQ(device.written().size(), 0u);
}

}  // namespace
}  // namespace tarnwheel::client
