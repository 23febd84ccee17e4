#include "tests/support/server_process.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace system_test {
namespace {

std::wstring DecodeLog(const std::string& content) {
  std::wstring text;
  for (std::size_t i = 0; i + 1 < content.size(); i += 2) {
    const auto low = static_cast<unsigned char>(content[i]);
    const auto high = static_cast<unsigned char>(content[i + 1]);
    text += static_cast<wchar_t>(low | high << 8);
  }
  return text;
}

}  // namespace

std::vector<LogLine> ParseLog(const std::string& content) {
  const std::wstring text = DecodeLog(content);
  Require(text.rfind(L'\xFEFF') == 0, "finding one byte order mark, at the start of the log,");
  std::vector<LogLine> lines;
  for (std::size_t from = 1; from < text.size();) {
    const auto end = text.find(L"\r\n", from);
    if (end == std::wstring::npos)
      break;  // being written
    const std::wstring line = text.substr(from, end - from);
    const auto first = line.find(L'\t');
    const auto second = first == std::wstring::npos ? first : line.find(L'\t', first + 1);
    Require(second != std::wstring::npos, "finding three columns in a log line");
    lines.push_back({line.substr(0, first), line.substr(first + 1, second - first - 1),
                     line.substr(second + 1)});
    from = end + 2;
  }
  return lines;
}

ServerProcess::ServerProcess(std::wstring_view arguments, std::wstring_view program)
    : program_(program, L"--nologo --no-discovery --log-level debug --log-path \"" + log_.path() +
                            L"\" " + std::wstring(arguments)) {
  const auto ready = [this] {
    return DecodeLog(log_.Content()).find(kStarted) != std::wstring::npos ||
           program_.Output().find(kStarted) != std::wstring::npos || !program_.Runs();
  };
  EXPECT_TRUE(Eventually(ready) && program_.Runs()) << "the server does not start";
}

ServerProcess::~ServerProcess() {
  if (!program_.Runs())
    return;
  EXPECT_TRUE(SignalStopEvent());
  EXPECT_TRUE(Eventually([this] { return !program_.Runs(); }) && program_.ExitCode() == 0);
}

std::size_t ServerProcess::Count(std::wstring_view level, std::wstring_view message_end) const {
  return static_cast<std::size_t>(std::ranges::count_if(Log(), [&](const LogLine& line) {
    return line.level == level && line.message.ends_with(message_end);
  }));
}

std::size_t ServerProcess::Count(std::wstring_view text) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      Log(), [&](const LogLine& line) { return line.message.find(text) != std::wstring::npos; }));
}

bool ServerProcess::Logs(std::wstring_view level, std::wstring_view message_end,
                         std::size_t times) const {
  return Eventually([&] { return Count(level, message_end) >= times; });
}

bool ServerProcess::Logs(std::wstring_view text) const {
  return Eventually([&] { return Count(text) != 0; });
}

bool ServerProcess::AllClientsDeparted() const {
  return Eventually(
      [this] { return Count(L"INFO", L"Client connected") == Count(L"INFO", L" disconnected"); });
}

bool ServerProcess::HandlesComeDownTo(std::size_t count) const {
  return Eventually([&] { return program_.HandleCount() <= count; });
}

void ServerProcess::Stop() {
  EXPECT_TRUE(SignalStopEvent());
  EXPECT_EQ(program_.ExitCode(), 0u);
}

bool SignalStopEvent() {
  const Tamrin::unique_handle event(::OpenEventW(EVENT_MODIFY_STATE, FALSE, kStopEvent));
  return event && ::SetEvent(event.get());
}

FaultyServer::FaultyServer(std::wstring_view arguments)
    : ServerProcess(arguments, L"faulty-server"),
      section_(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE,
                                  FaultBoardName(program().ProcessId()).c_str())),
      board_(
          static_cast<FaultBoard*>(::MapViewOfFile(section_.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0))) {
  Require(board_ != nullptr, "mapping the board of a faulty server");
}

std::vector<std::string> FaultyServer::FaultPoints() const {
  std::vector<std::string> names;
  for (std::size_t point = 0; point < board_->points; ++point)
    names.emplace_back(board_->names.at(point).data());
  return names;
}

void FaultyServer::Fail(std::size_t point, int occurrence) {
  board_->failures = 0;
  board_->countdown = occurrence;
  board_->point = static_cast<std::int32_t>(point);
}

void FaultyServer::Block(std::string_view name) {
  const auto names = FaultPoints();
  const auto found = std::ranges::find(names, name);
  Require(found != names.end(), "finding a point of failure");
  board_->error = 0;
  Fail(static_cast<std::size_t>(found - names.begin()), 1);
}

bool FaultyServer::Strikes() const {
  return Eventually([this] { return HasStruck(); });
}

bool FaultyServer::Relent() {
  board_->point = kNoFault;
  board_->error = ERROR_NO_SYSTEM_RESOURCES;
  return HasStruck();
}

}  // namespace system_test
