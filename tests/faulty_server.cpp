#include "tests/faulty_server.h"

#include <algorithm>

#include "tests/server_process.h"

namespace system_test {

FaultyServer::FaultyServer(std::wstring_view arguments)
    : program_(L"faulty-server", L"--nologo --no-screen-log --log-path \"" + log_.path() + L"\" " +
                                     std::wstring(arguments)) {
  const auto name = FaultBoardName(program_.ProcessId());
  const auto open = [&] {
    section_.reset(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name.c_str()));
    return static_cast<bool>(section_);
  };
  Require(Eventually(open), "opening the board of a faulty server");
  board_ = static_cast<FaultBoard*>(::MapViewOfFile(section_.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
  Require(board_ != nullptr, "MapViewOfFile");
  Require(Eventually([&] { return board_->points != 0; }), "the start of a faulty server");
}

FaultyServer::~FaultyServer() {
  ::UnmapViewOfFile(board_);
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

void FaultyServer::FailWith(DWORD error, std::string_view name, int occurrence) {
  const auto names = FaultPoints();
  const auto found = std::ranges::find(names, name);
  Require(found != names.end(), "finding a point of failure");
  board_->error = error;
  Fail(static_cast<std::size_t>(found - names.begin()), occurrence);
}

bool FaultyServer::Strikes() const {
  return Eventually([this] { return board_->failures != 0; });
}

bool FaultyServer::Logs(std::wstring_view text) const {
  return Eventually([&] {
    return std::ranges::any_of(ParseLog(log_.Content()), [&](const LogLine& line) {
      return line.message.find(text) != std::wstring::npos;
    });
  });
}

bool FaultyServer::Relent() {
  board_->point = kNoFault;
  board_->error = ERROR_NO_SYSTEM_RESOURCES;
  return board_->failures != 0;
}

}  // namespace system_test
