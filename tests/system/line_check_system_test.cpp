// The tool that checks a real line, on the virtual one.
#include <gtest/gtest.h>

#include "tests/support/server_process.h"
#include "tests/support/virtual_port.h"

namespace system_test {
namespace {

constexpr wchar_t kLineCheck[] = L"tarnwheel-line-check";
const std::wstring kLine = L". COM" + std::to_wstring(kVirtualPort);

// Wine opens a port twice, and so each row but that one passes.
TEST(LineCheck, FindsAGoodLineGoodAndSeesTheDeviceGo) {
  VirtualPort port;
  const ServerProcess server;
  port.LoopBack();
  const CompletedRun good(kLineCheck, kLine);
  EXPECT_EQ(good.exit_code, 1u) << std::string(good.output.begin(), good.output.end());
  EXPECT_NE(good.output.find(L"FAIL  another client is refused: 0x00000000 instead of 0x80070005"),
            std::wstring::npos);
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
