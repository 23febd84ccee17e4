#include "tests/server_process.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace system_test {
namespace {

LogLine ParseLine(std::wstring_view line) {
  const auto first = line.find(L'\t');
  const auto second = first == std::wstring_view::npos ? first : line.find(L'\t', first + 1);
  if (second == std::wstring_view::npos) {
    ADD_FAILURE() << "not a log line of three columns";
    return {};
  }
  return {std::wstring(line.substr(0, first)),
          std::wstring(line.substr(first + 1, second - first - 1)),
          std::wstring(line.substr(second + 1))};
}

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
  EXPECT_EQ(text.rfind(L'\xFEFF'), 0u) << "the byte order mark is not once at the start";
  std::vector<LogLine> lines;
  for (std::size_t from = 1; from < text.size();) {
    const auto end = text.find(L"\r\n", from);
    if (end == std::wstring::npos)
      break;  // being written
    lines.push_back(ParseLine(std::wstring_view(text).substr(from, end - from)));
    from = end + 2;
  }
  return lines;
}

ServerProcess::ServerProcess(std::wstring_view arguments)
    : program_(kServer, L"--nologo --no-discovery --log-level debug --log-path \"" + log_.path() +
                            L"\" " + std::wstring(arguments)) {
  const auto ready = [this] {
    return DecodeLog(log_.Content()).find(kStarted) != std::wstring::npos ||
           program_.Output().find(kStarted) != std::wstring::npos || !program_.Runs();
  };
  const bool started = Eventually(ready);
  EXPECT_TRUE(started && program_.Runs()) << "the server does not start";
}

ServerProcess::~ServerProcess() {
  if (program_.Runs())
    Stop();
}

std::size_t ServerProcess::Count(std::wstring_view level, std::wstring_view message) const {
  const auto lines = Log();
  return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
    return line.level == level && line.message.ends_with(message);
  }));
}

bool ServerProcess::Logs(std::wstring_view level, std::wstring_view message,
                         std::size_t times) const {
  return Eventually([&] { return Count(level, message) >= times; });
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

}  // namespace system_test
