// The tool that checks a real line, on the virtual one.
#include <gtest/gtest.h>

#include <sstream>

#include "tests/server_process.h"
#include "tests/virtual_port.h"

namespace system_test {
namespace {

constexpr wchar_t kLineCheck[] = L"tarnwheel-line-check";
const std::wstring kLine = L". COM" + std::to_wstring(kVirtualPort);

// Wine opens a port twice.
constexpr wchar_t kOpenedTwice[] =
    L"FAIL  another client is refused: 0x00000000 instead of 0x80070005";

std::vector<std::wstring> Failures(const std::wstring& output) {
  std::vector<std::wstring> failures;
  std::wistringstream in(output);
  for (std::wstring line; std::getline(in, line);) {
    if (line.starts_with(L"FAIL"))
      failures.push_back(line);
  }
  return failures;
}

TEST(LineCheck, FindsNothingWrongWithAGoodLine) {
  VirtualPort port;
  port.LoopBack();
  ServerProcess server;
  const CompletedRun check(kLineCheck, kLine);
  EXPECT_EQ(Failures(check.output), std::vector<std::wstring>{kOpenedTwice}) << check.errors;
  EXPECT_EQ(check.exit_code, 1u);
  EXPECT_TRUE(check.output.ends_with(L"PASS  the port is free again\n"));
}

TEST(LineCheck, TellsWhatALineWithoutPlugLacks) {
  VirtualPort port;
  ServerProcess server;
  const CompletedRun check(kLineCheck, kLine);
  const std::vector<std::wstring> expected = {
      kOpenedTwice,
      L"FAIL  bytes come back: 0 bytes instead of 4096, the same up to 0",
      L"FAIL  modem lines follow DTR and RTS: 0x00000000 instead of 0x000000a0",
      L"FAIL  a wait tells of a modem line: no answer within 1500 ms",
      L"FAIL  a wait tells of a break: no answer within 1500 ms",
      L"FAIL  lost bytes are told: 65536 bytes were lost and no error is told",
      L"FAIL  an aborted read has no answer: 0 bytes instead of 4096, the same up to 0"};
  EXPECT_EQ(Failures(check.output), expected);
  EXPECT_EQ(check.exit_code, expected.size());
}

TEST(LineCheck, SeesTheDeviceGoAndComeBack) {
  VirtualPort port;
  port.LoopBack();
  ServerProcess server;
  Program check(kLineCheck, kLine + L" --unplug");
  ASSERT_TRUE(check.Prints(L"Unplug the device now."));
  port.Vanish();
  ASSERT_TRUE(check.Prints(L"Plug it in again."));
  port.ComeBack();
  EXPECT_TRUE(check.Prints(L"PASS  unplugging\n"));
  EXPECT_EQ(check.ExitCode(), 0u);
}

}  // namespace
}  // namespace system_test
