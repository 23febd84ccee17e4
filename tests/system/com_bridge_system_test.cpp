// A program opens one end of a null modem as a local serial port. A bridge that holds the other end
// connects it with a port of a server.
#include <gtest/gtest.h>

#include "tests/support/program.h"
#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

std::wstring Command(std::uint32_t port, const std::wstring& device) {
  return L"bridge . COM" + std::to_wstring(port) + L" --com " + device;
}

class ComBridge : public ::testing::Test {
 protected:
  // Waits until the port has these outputs, this baud rate, and this line control (stop bits,
  // parity, data bits).
  static bool Has(const VirtualPort& port, std::uint32_t outputs, std::uint32_t rate = 9600,
                  std::array<std::uint8_t, 4> line = {2, 2, 7}) {
    return Eventually([&] {
      const auto state = port.State();
      return state.outputs == outputs && state.baud_rate == rate &&
             std::ranges::equal(state.line_control, line);
    });
  }
  // Actions of the program.
  void SetLine(const wchar_t* settings) const {
    DCB line = {};
    line.DCBlength = sizeof line;
    EXPECT_TRUE(::GetCommState(pair_.FarEnd(), &line) && ::BuildCommDCBW(settings, &line) &&
                ::SetCommState(pair_.FarEnd(), &line));
  }
  void Do(DWORD function) const { ::EscapeCommFunction(pair_.FarEnd(), function); }
  [[nodiscard]] bool Sees(DWORD lines) const {
    return Eventually([&] {
      DWORD status = 0;
      return ::GetCommModemStatus(pair_.FarEnd(), &status) && (status & 0x30) == lines;
    });
  }

  VirtualPort port_, pair_{kLocalPort};
  ServerProcess server_;
  const std::wstring device_ = L"COM" + std::to_wstring(kLocalPort);
  // Wine does not wait for a control of an overlapped handle, so the controls go through pair_.
  const Tamrin::unique_file program_ = OpenPort(kLocalPort + 1, FILE_FLAG_OVERLAPPED);
};

TEST_F(ComBridge, IsACableWithTheProgramsSettings) {
  const Program bridge(L"tarnwheel-client", Command(kVirtualPort, device_) + L" --retry");
  EXPECT_TRUE(bridge.Prints(L"has connected"));
  SetLine(L"baud=9600 parity=e data=7 stop=2");
  EXPECT_TRUE(Has(port_, 0));
  const std::pair<DWORD, std::uint32_t> steps[] = {
      {SETDTR, OUTPUT_DTR},   {SETRTS, OUTPUT_DTR | OUTPUT_RTS},
      {CLRDTR, OUTPUT_RTS},   {SETBREAK, OUTPUT_RTS | OUTPUT_BREAK},
      {CLRBREAK, OUTPUT_RTS},
  };
  for (const auto& [function, outputs] : steps) {
    Do(function);
    EXPECT_TRUE(Has(port_, outputs)) << function;
  }
  const std::pair<DWORD, DWORD> answers[] = {
      {SETDTR, MS_DSR_ON}, {SETRTS, MS_DSR_ON | MS_CTS_ON}, {CLRDTR, MS_CTS_ON}};
  for (const auto& [function, lines] : answers) {
    ::EscapeCommFunction(port_.FarEnd(), function);
    EXPECT_TRUE(Sees(lines)) << function;
  }
  OVERLAPPED wait = {}, read = {}, write = {};
  DWORD events = 0, size = 0;
  EXPECT_TRUE(::SetCommMask(pair_.FarEnd(), EV_BREAK));
  ::WaitCommEvent(program_.get(), &events, &wait);
  ::EscapeCommFunction(port_.FarEnd(), SETBREAK);
  EXPECT_TRUE(Eventually([&] { return events == EV_BREAK; }));
  EXPECT_TRUE(Eventually([&] { return pair_.State().outputs == OUTPUT_RTS; }));

  // Both directions at once; settings changed after the bytes apply only to what follows.
  Bytes sent(1 << 20, '\0'), received = sent;
  for (std::size_t i = 0; i < sent.size(); ++i)
    sent[i] = static_cast<char>(i + i / 251);
  COMMTIMEOUTS all = {};
  EXPECT_TRUE(::SetCommTimeouts(pair_.FarEnd(), &all));
  ::ReadFile(program_.get(), received.data(), 1 << 20, nullptr, &read);
  ::WriteFile(program_.get(), sent.data(), 1 << 20, nullptr, &write);
  port_.Send(sent);
  SetLine(L"baud=300 parity=m data=5 stop=1.5");
  EXPECT_TRUE(port_.Receives(sent));
  EXPECT_TRUE(Has(port_, OUTPUT_RTS, 300, {1, 3, 5}));
  EXPECT_TRUE(::GetOverlappedResult(program_.get(), &read, &size, TRUE) && received == sent);

  server_.Stop();
  EXPECT_TRUE(bridge.Prints(L"trying again"));
  const ServerProcess next;
  EXPECT_TRUE(bridge.Prints(L" is back"));
  EXPECT_TRUE(Has(port_, OUTPUT_RTS, 300, {1, 3, 5}));
  pair_.Vanish();
  EXPECT_EQ(bridge.ExitCode(), 5u);
  EXPECT_TRUE(bridge.Prints(device_ + L" does not exist"));
}

TEST_F(ComBridge, HasTheReleasedPortWhileTheProgramHasDtrOn) {
  const Program bridge(L"tarnwheel-client", Command(kVirtualPort, device_) + L" --release");
  EXPECT_TRUE(bridge.Prints(L"Listening on " + device_));
  for (const Bytes& text : {Pattern(200'000), Pattern(5)}) {
    EXPECT_TRUE(port_.IsClosed());
    EXPECT_FALSE(Eventually([&] { return port_.State().open_handles != 0; }, 200));
    SetLine(L"baud=1200 parity=e data=7 stop=2");
    Do(SETDTR);
    EXPECT_TRUE(Has(port_, OUTPUT_DTR, 1200));
    OVERLAPPED write = {};
    ::WriteFile(program_.get(), text.data(), static_cast<DWORD>(text.size()), nullptr, &write);
    Do(CLRDTR);
    EXPECT_TRUE(port_.Receives(text));
  }
  EXPECT_TRUE(port_.IsClosed());
  server_.Stop();
  Do(SETDTR);
  EXPECT_TRUE(bridge.Prints(L"No server runs on this machine"));
  pair_.Vanish();
  EXPECT_EQ(bridge.ExitCode(), 5u);
}

TEST_F(ComBridge, DeviceThatTellsNoSettingsHasThoseOfTheCommandLine) {
  const Program bridge(L"tarnwheel-client",
                       Command(kLocalPort, L"COM" + std::to_wstring(kVirtualPort + 1)) +
                           L" --baud 300 --data 7 --parity even --stop 2");
  EXPECT_TRUE(bridge.Prints(L" does not report a program's line settings"));
  EXPECT_TRUE(Has(pair_, 0, 300));
  const auto program = OpenPort(kVirtualPort);
  for (std::uint32_t breaks = 1; breaks <= 2; ++breaks) {
    ::EscapeCommFunction(program.get(), SETBREAK);
    EXPECT_TRUE(Eventually([&] { return pair_.State().breaks == breaks; }));
    ::EscapeCommFunction(program.get(), CLRBREAK);
    EXPECT_TRUE(Has(pair_, 0, 300));
  }
}

TEST_F(ComBridge, TellsWhyADeviceIsNotToBeHad) {
  const struct {
    std::wstring device, error;
    DWORD exit_code;
  } rows[] = {{L"COM77", L"COM77 does not exist (0x80070002)\n", 5},
              {L"CNCB0", L"CNCB0 does not exist (0x80070002)\n", 5},
              {L"COM6", L"COM6 is in use by another program (0x80070020)\n", 5},
              {L"C:", L"Error: Invalid device specified: \"C:\"; expected a name", 1},
              {L"COM5 --release", L"COM5 has no modem lines (0x80070032)\n", 5}};
  const auto taken = OpenPort(kFilePort);
  for (const auto& row : rows) {
    const CompletedRun run(L"tarnwheel-client", Command(kVirtualPort, row.device));
    EXPECT_EQ(run.exit_code, row.exit_code);
    EXPECT_TRUE(run.errors.starts_with(row.error)) << testing::PrintToString(run.errors);
  }
}

}  // namespace
}  // namespace system_test
