// Compares the log with a plain writer, whose callers format and write each line themselves.
#include <cstdio>
#include <cwchar>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "async/errors.h"
#include "bench/measure.h"
#include "log/logger.h"
#include "platform/unique_resource.h"

namespace bench {
namespace {

constexpr int kLines = 20'000;
const std::wstring kMessage = L"Client MACHINE\\operator has just connected to COM12";

std::wstring LogPath() {
  wchar_t folder[MAX_PATH];
  ::GetTempPathW(MAX_PATH, folder);
  return std::wstring(folder) + L"log_bench_" + std::to_wstring(::GetCurrentProcessId());
}

// Lets `threads` threads write kLines lines in all.
template <class WriteLine>
void FromThreads(int threads, WriteLine write_line) {
  std::vector<std::jthread> writers;
  for (int i = 0; i < threads; ++i) {
    writers.emplace_back([&] {
      for (int line = 0; line < kLines / threads; ++line)
        write_line();
    });
  }
}

struct Rates {
  double logged;   // lines per second until all calls have returned
  double written;  // lines per second until all are in the file
};

Rates LoggerRates(int threads) {
  const std::wstring path = LogPath();
  ::DeleteFileW(path.c_str());
  logging::Logger logger;
  if (!logger.initialize(path, false, logging::info))
    ostra::details::throw_last_error();
  const double start = Now();
  FromThreads(threads, [&] { logger.log(std::wstring_view(kMessage), logging::info); });
  const double logged = Now();
  logger.stop();
  return {kLines / (logged - start), kLines / (Now() - start)};
}

double PlainRate(int threads) {
  const std::wstring path = LogPath();
  const Tamrin::unique_file file(ostra::details::check_file(::CreateFileW(
      path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr)));
  std::mutex lock;
  return kLines / Seconds([&] {
           FromThreads(threads, [&] {
             SYSTEMTIME now;
             ::GetLocalTime(&now);
             wchar_t line[256];
             const int length =
                 std::swprintf(line, std::size(line), L"%02u.%02u.%u %02u:%02u:%02u\t%ls\t%ls\r\n",
                               now.wDay, now.wMonth, now.wYear, now.wHour, now.wMinute, now.wSecond,
                               L"INFO", kMessage.c_str());
             const std::lock_guard guard(lock);
             DWORD written = 0;
             ostra::details::check_bool(
                 ::WriteFile(file.get(), line, static_cast<DWORD>(length) * 2, &written, nullptr));
           });
         });
}

void MeasureLog() {
  for (const int threads : {1, 8}) {
    PrintHeading("Lines a second from " + std::to_string(threads) + " threads");
    Comparison{"until the callers go on", "lines/s", "plain writer", {}, 9}.Run(
        [&] { return LoggerRates(threads).logged; }, [&] { return PlainRate(threads); });
    Comparison{"until all are in the file", "lines/s", "plain writer", {}, 9}.Run(
        [&] { return LoggerRates(threads).written; }, [&] { return PlainRate(threads); });
  }
  ::DeleteFileW(LogPath().c_str());
}

}  // namespace
}  // namespace bench

int main() {
  bench::MeasureLog();
}
