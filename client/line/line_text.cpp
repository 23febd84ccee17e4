#include "client/line/line_text.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "app/command_line/cmd_line_syntax_error.h"
#include "format/format.h"
#include "platform/win32.h"

namespace tarnwheel::client {
namespace {

constexpr std::byte kCr{'\r'};
constexpr std::byte kLf{'\n'};

struct line_end {
  std::wstring_view name;
  std::string_view bytes;
};

constexpr line_end kLineEnds[] = {{L"none", ""}, {L"cr", "\r"}, {L"lf", "\n"}, {L"crlf", "\r\n"}};

void append(std::vector<std::byte>& bytes, std::string_view text) {
  for (const char character : text)
    bytes.push_back(std::byte(character));
}

std::string stamp() {
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  const auto text = tfmt::format(L"{0w2arf0}:{1w2arf0}:{2w2arf0}.{3w3arf0} ",
                                 std::uint32_t{now.wHour}, std::uint32_t{now.wMinute},
                                 std::uint32_t{now.wSecond}, std::uint32_t{now.wMilliseconds});
  return {text.begin(), text.end()};
}

}  // namespace

std::string_view parse_line_end(std::wstring_view name, bool may_be_none) {
  const auto* const end = std::ranges::find(kLineEnds, name, &line_end::name);
  if (end == std::end(kLineEnds) || (end->bytes.empty() && !may_be_none))
    throw Tamrin::cmd_line_syntax_error("Invalid line end specified.", name,
                                        may_be_none ? L"none, cr, lf or crlf" : L"cr, lf or crlf");
  return end->bytes;
}

std::vector<std::byte> line_end_converter::convert(std::span<const std::byte> block) {
  std::vector<std::byte> bytes;
  for (const std::byte byte : block) {
    if (kept_cr_ && byte != kLf)
      bytes.push_back(kCr);
    kept_cr_ = byte == kCr;
    if (byte == kLf)
      append(bytes, end_);
    else if (byte != kCr)
      bytes.push_back(byte);
  }
  return bytes;
}

std::vector<std::byte> line_end_converter::finish() {
  return std::vector<std::byte>(std::exchange(kept_cr_, false) ? 1 : 0, kCr);
}

std::vector<std::byte> cr_inserter::convert(std::span<const std::byte> block) {
  std::vector<std::byte> bytes;
  for (const std::byte byte : block) {
    if (byte == kLf && last_ != kCr)
      bytes.push_back(kCr);
    bytes.push_back(byte);
    last_ = byte;
  }
  return bytes;
}

std::vector<std::byte> time_stamper::convert(std::span<const std::byte> block) {
  std::vector<std::byte> bytes;
  const std::string now = stamp();
  for (const std::byte byte : block) {
    if (begins_line_)
      append(bytes, now);
    begins_line_ = byte == kLf;
    bytes.push_back(byte);
  }
  return bytes;
}

}  // namespace tarnwheel::client
