#include "app/command_line/numbers.h"

#include <algorithm>
#include <limits>

#include "app/command_line/cmd_line_syntax_error.h"
#include "format/format.h"

namespace Tamrin {
namespace {

constexpr std::wstring_view kPortPrefix = L"COM";

bool is_digit(wchar_t character) {
  return character >= L'0' && character <= L'9';
}

bool has_port_prefix(std::wstring_view text) {
  const auto same_letter = [](wchar_t letter, wchar_t character) {
    return character == letter || character == letter - L'A' + L'a';
  };
  return text.size() >= kPortPrefix.size() &&
         std::equal(kPortPrefix.begin(), kPortPrefix.end(), text.begin(), same_letter);
}

}  // namespace

std::uint32_t parse_number(std::wstring_view text, const std::string& what, std::uint32_t least,
                           std::uint32_t greatest, std::wstring_view expected) {
  std::uint64_t number = 0;
  bool valid = !text.empty();
  for (const wchar_t character : text) {
    valid = valid && is_digit(character) && number <= greatest;
    if (!valid)
      break;
    number = number * 10 + static_cast<std::uint64_t>(character - L'0');
  }
  if (!valid || number < least || number > greatest)
    throw cmd_line_syntax_error("Invalid " + what + " specified.", text,
                                expected.empty()
                                    ? tfmt::format(L"a number from {0} to {1}", least, greatest)
                                    : std::wstring(expected));
  return static_cast<std::uint32_t>(number);
}

std::uint32_t parse_port(std::wstring_view text) {
  if (has_port_prefix(text))
    text.remove_prefix(kPortPrefix.size());
  return parse_number(text, "port", 1, std::numeric_limits<std::uint32_t>::max(),
                      L"a port such as COM5");
}

}  // namespace Tamrin
