#include "tests/support/server_process.h"

#include <algorithm>

namespace system_test {

bool SignalStopEvent() {
  const Tamrin::unique_handle event(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kStopEvent));
  return event && ::SetEvent(event.get());
}

ServerProcess::ServerProcess(std::wstring_view arguments, std::wstring_view program)
    : Program(program, L"--nologo --no-discovery --log-level debug " + std::wstring(arguments)) {
  EXPECT_TRUE(Prints(kStarted)) << "the server does not start";
}

ServerProcess::~ServerProcess() {
  EXPECT_TRUE(!Runs() ||
              (SignalStopEvent() && Eventually([this] { return !Runs(); }) && ExitCode() == 0));
}

int ServerProcess::Count(std::wstring_view text) const {
  const std::wstring log = Output();
  int count = 0;
  for (auto at = log.find(text); at != log.npos; at = log.find(text, at + 1))
    ++count;
  return count;
}

bool ServerProcess::Logs(std::wstring_view text, int times) const {
  return Eventually([&] { return Count(text) >= times; });
}

void ServerProcess::Stop() const {
  EXPECT_TRUE(SignalStopEvent());
  EXPECT_EQ(ExitCode(), 0u);
}

FaultSwitch::FaultSwitch(DWORD process_id) {
  const Tamrin::unique_handle section(
      ::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, FaultBoardName(process_id).c_str()));
  board_ = static_cast<FaultBoard*>(::MapViewOfFile(section.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
  Require(board_ != nullptr, "mapping the board of a faulty server");
}

void FaultSwitch::Fail(int point, int occurrence, bool blocks) {
  board_->failures = 0;
  board_->blocks = blocks;
  board_->countdown = occurrence;
  board_->point = point;
}

void FaultSwitch::Block(std::string_view function) {
  const auto* const found = std::ranges::find(kFaultPoints, function);
  Require(found != std::end(kFaultPoints), "finding a function that can fail");
  Fail(static_cast<int>(found - kFaultPoints), 1, true);
}

bool FaultSwitch::Disarm() {
  board_->point = kNoFault;
  return HasStruck();
}

}  // namespace system_test
