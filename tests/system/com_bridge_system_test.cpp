// A program that opens one end of a null modem as a serial port of its own, while a bridge has the other
// end, and works the far end of a server's port so.
#include <gtest/gtest.h>

#include "tests/support/program.h"
#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

std::wstring Command(const std::wstring& device) {
  return L"bridge . COM" + std::to_wstring(kVirtualPort) + L" --com " + device;
}

class ComBridge : public ::testing::Test {
 protected:
  static constexpr DWORD kBoth = MS_CTS_ON | MS_DSR_ON;

  // What the far end's port has as its outputs, and what the far end does.
  [[nodiscard]] bool HasOutputs(std::uint32_t outputs) const {
    return Eventually([&] { return port_.State().outputs == outputs; });
  }
  [[nodiscard]] bool HasLine(std::uint32_t rate, const UCHAR (&line)[3]) const {
    return Eventually([&] {
      const auto state = port_.State();
      return state.baud_rate == rate && std::equal(line, line + 3, state.line_control);
    });
  }
  void SetLine(DWORD rate, BYTE bits, BYTE parity, BYTE stop_bits) const {
    DCB settings = {};
    settings.DCBlength = sizeof settings;
    ASSERT_TRUE(::GetCommState(pair_.FarEnd(), &settings));
    settings.BaudRate = rate;
    settings.ByteSize = bits;
    settings.Parity = parity;
    settings.StopBits = stop_bits;
    EXPECT_TRUE(::SetCommState(pair_.FarEnd(), &settings));
  }
  void Do(DWORD function) const { EXPECT_TRUE(::EscapeCommFunction(pair_.FarEnd(), function)); }
  [[nodiscard]] bool HasInputs(DWORD inputs) const {
    return Eventually([&] {
      DWORD status = 0;
      return ::GetCommModemStatus(pair_.FarEnd(), &status) && (status & kBoth) == inputs;
    });
  }

  VirtualPort port_, pair_{kLocalPort};
  ServerProcess server_;
  const std::wstring device_ = L"COM" + std::to_wstring(kLocalPort);
  // Wine gives calls without OVERLAPPED no result on this one, so pair_ makes them.
  const Tamrin::unique_file program_ = OpenPort(kLocalPort + 1, FILE_FLAG_OVERLAPPED);
};

TEST_F(ComBridge, IsACableWithTheProgramsSettings) {
  const Program bridge(L"tarnwheel-client", Command(device_));
  EXPECT_TRUE(bridge.Prints(L"has connected")) << testing::PrintToString(bridge.Errors());
  SetLine(9600, 7, EVENPARITY, TWOSTOPBITS);
  EXPECT_TRUE(HasLine(9600, {2, 2, 7}));
  Do(SETDTR);
  EXPECT_TRUE(HasOutputs(OUTPUT_DTR));
  Do(SETRTS);
  Do(CLRDTR);
  EXPECT_TRUE(HasOutputs(OUTPUT_RTS));
  Do(SETBREAK);
  EXPECT_TRUE(HasOutputs(OUTPUT_RTS | OUTPUT_BREAK));
  Do(CLRBREAK);
  EXPECT_TRUE(HasOutputs(OUTPUT_RTS));

  ::EscapeCommFunction(port_.FarEnd(), SETDTR);
  EXPECT_TRUE(HasInputs(MS_DSR_ON));
  ::EscapeCommFunction(port_.FarEnd(), SETRTS);
  ::EscapeCommFunction(port_.FarEnd(), CLRDTR);
  EXPECT_TRUE(HasInputs(MS_CTS_ON));
  const Tamrin::unique_handle done(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  OVERLAPPED wait = {};
  wait.hEvent = done.get();
  DWORD events = 0, size = 0;
  EXPECT_TRUE(::SetCommMask(pair_.FarEnd(), EV_BREAK));
  ::WaitCommEvent(program_.get(), &events, &wait);
  ::EscapeCommFunction(port_.FarEnd(), SETBREAK);
  EXPECT_EQ(::WaitForSingleObject(done.get(), kPatience), WAIT_OBJECT_0);
  EXPECT_EQ(events, DWORD{EV_BREAK});
  EXPECT_TRUE(Eventually([&] { return pair_.State().outputs == OUTPUT_RTS; }));

  // Each way, at once.
  Bytes sent(1 << 20, '\0'), received = sent;
  for (std::size_t i = 0; i < sent.size(); ++i)
    sent[i] = static_cast<char>(i + i / 251);
  COMMTIMEOUTS all = {};
  EXPECT_TRUE(::SetCommTimeouts(pair_.FarEnd(), &all));
  OVERLAPPED read = {}, write = {};
  ::ReadFile(program_.get(), received.data(), 1 << 20, nullptr, &read);
  ::WriteFile(program_.get(), sent.data(), 1 << 20, nullptr, &write);
  port_.Send(sent);
  SetLine(300, 5, MARKPARITY, ONE5STOPBITS);  // behind the bytes
  EXPECT_TRUE(port_.Receives(sent));
  EXPECT_TRUE(HasLine(300, {1, 3, 5}));
  EXPECT_TRUE(::GetOverlappedResult(program_.get(), &read, &size, TRUE));
  EXPECT_TRUE(received == sent) << size;

  pair_.Vanish();
  EXPECT_EQ(bridge.ExitCode(), 5u);
  EXPECT_TRUE(bridge.Prints(device_ + L" does not exist"));
}

TEST_F(ComBridge, HasTheReleasedPortWhileTheProgramHasDtrOn) {
  const Program bridge(L"tarnwheel-client", Command(device_) + L" --release");
  EXPECT_TRUE(bridge.Prints(L"Listening on " + device_));
  for (const Bytes text : {"first", "second"}) {
    EXPECT_TRUE(port_.IsClosed());
    SetLine(1200, 8, NOPARITY, ONESTOPBIT);  // nobody is told of a change
    Do(SETDTR);
    EXPECT_TRUE(HasOutputs(OUTPUT_DTR));
    EXPECT_TRUE(HasLine(1200, {0, 0, 8}));
    EXPECT_TRUE(HasOutputs(OUTPUT_DTR));
    OVERLAPPED write = {};
    ::WriteFile(program_.get(), text.data(), static_cast<DWORD>(text.size()), nullptr, &write);
    Do(CLRDTR);
    EXPECT_TRUE(port_.Receives(text));
  }
  server_.Stop();
  Do(SETDTR);
  EXPECT_TRUE(bridge.Prints(L"No server runs on this machine"));
}

TEST_F(ComBridge, TellsWhyADeviceIsNotToBeHad) {
  const struct {
    std::wstring device, error;
    DWORD exit_code;
  } rows[] = {{L"COM77", L"COM77 does not exist (0x80070002)\n", 5},
              {L"CNCB0", L"CNCB0 does not exist (0x80070002)\n", 5},
              {L"COM6", L"COM6 is in use by another program (0x80070020)\n", 5},
              {L"C:", L"Error: Invalid device specified: \"C:\"; expected", 1}};
  const auto taken = OpenPort(6);
  for (const auto& row : rows) {
    const CompletedRun run(L"tarnwheel-client", Command(row.device));
    EXPECT_EQ(run.exit_code, row.exit_code);
    EXPECT_TRUE(run.errors.starts_with(row.error))
        << std::string(run.errors.begin(), run.errors.end());
  }
}

}  // namespace
}  // namespace system_test
