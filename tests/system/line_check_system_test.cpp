// The tool that checks a real line, on the virtual one.
#include <gtest/gtest.h>

#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

constexpr wchar_t kLineCheck[] = L"tarnwheel-line-check";
const std::wstring kLine = L". COM" + std::to_wstring(kVirtualPort);

// Wine opens a port twice. Without the plug the bytes and the modem lines do not come back.
TEST(LineCheck, TellsAGoodLineFromABadOne) {
  VirtualPort port;
  const ServerProcess server;
  const CompletedRun bad(kLineCheck, kLine);
  EXPECT_EQ(bad.exit_code, 7u);
  for (const wchar_t* row :
       {L"FAIL  another client is refused: 0x00000000 instead of 0x80070005\n",
        L"PASS  settings come back\n", L"PASS  reads end by their time-outs\n",
        L"FAIL  bytes come back: 0 bytes instead of 4096, the same up to 0\n",
        L"FAIL  modem lines follow DTR and RTS: 0x00000000 instead of 0x000000a0\n",
        L"FAIL  a wait tells of a modem line: no answer within 1500 ms\n"})
    EXPECT_NE(bad.output.find(row), std::wstring::npos) << std::string(row, row + 40);

  port.Reset();
  port.LoopBack();
  const CompletedRun good(kLineCheck, kLine);
  EXPECT_EQ(good.exit_code, 1u) << std::string(good.output.begin(), good.output.end());
  EXPECT_TRUE(good.output.ends_with(L"PASS  the port is free again\n"));

  const Program unplugged(kLineCheck, kLine + L" --unplug");
  EXPECT_TRUE(unplugged.Prints(L"Unplug the device now."));
  port.Vanish();
  EXPECT_TRUE(unplugged.Prints(L"Plug it in again."));
  port.ComeBack();
  EXPECT_EQ(unplugged.ExitCode(), 0u);
}

}  // namespace
}  // namespace system_test
