// Compares the format library with the C library's swprintf and with {fmt}, on lines that the
// server logs.
#include <cstdio>
#include <cwchar>
#include <string>

#include "bench/measure.h"
#include "format/format.h"

#define FMT_HEADER_ONLY
#include <fmt/format.h>
#include <fmt/xchar.h>

namespace bench {
namespace {

constexpr int kTimes = 50'000;

const std::wstring kName = L"MACHINE\\operator";
const std::wstring kMessage = L"Client MACHINE\\operator has just connected to COM12";
volatile std::uint32_t port = 12;
volatile std::uint32_t failure = 0x80070005;

// Keeps the compiler from removing the calls.
volatile std::size_t characters = 0;

template <class Format>
double NanosecondsEach(Format format) {
  return 1e9 / kTimes * Seconds([&] {
           for (int i = 0; i < kTimes; ++i)
             characters = characters + format().size();
         });
}

template <class... Args>
std::wstring Swprintf(const wchar_t* pattern, Args... args) {
  wchar_t buffer[256];
  const int length = std::swprintf(buffer, std::size(buffer), pattern, args...);
  return std::wstring(buffer, static_cast<std::size_t>(length));
}

template <class Ours, class C, class Fmt>
void Compare(const std::string& name, Ours ours, C c, Fmt fmt) {
  const auto run = [](auto format) { return [format] { return NanosecondsEach(format); }; };
  Comparison{name, "ns", "swprintf", Goal{Goal::kAtMost, 1.0}}.Run(run(ours), run(c));
  Comparison{name, "ns", "{fmt}"}.Run(run(ours), run(fmt));
}

void MeasureFormats() {
  PrintHeading("One text and one number");
  Compare(
      "connected",
      [] { return tfmt::format(L"Client {0} has just connected to COM{1}", kName, port + 0); },
      [] { return Swprintf(L"Client %ls has just connected to COM%u", kName.c_str(), port + 0); },
      [] { return fmt::format(L"Client {0} has just connected to COM{1}", kName, port + 0); });

  PrintHeading("A number in eight hexadecimal digits");
  Compare(
      "error", [] { return tfmt::format(L"Error accepting clients: {0ub016xp}", failure + 0); },
      [] { return Swprintf(L"Error accepting clients: 0x%08x", failure + 0); },
      [] { return fmt::format(L"Error accepting clients: 0x{0:08x}", failure + 0); });

  PrintHeading("A whole line of the log");
  Compare(
      "log line",
      [] {
        return tfmt::format(L"{0w2arf0}.{1w2arf0}.{2} {3w2arf0}:{4w2arf0}:{5w2arf0}\t{6}\t{7}\r\n",
                            port + 0, 11, 2026, 14, 7, 9, std::wstring_view(L"INFO"), kMessage);
      },
      [] {
        return Swprintf(L"%02u.%02d.%d %02d:%02d:%02d\t%ls\t%ls\r\n", port + 0, 11, 2026, 14, 7, 9,
                        L"INFO", kMessage.c_str());
      },
      [] {
        return fmt::format(L"{:02}.{:02}.{} {:02}:{:02}:{:02}\t{}\t{}\r\n", port + 0, 11, 2026, 14,
                           7, 9, L"INFO", kMessage);
      });
}

}  // namespace
}  // namespace bench

int main() {
  bench::MeasureFormats();
}
