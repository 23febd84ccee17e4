#include "format/format.h"

#include <cstddef>

#include "format/parser.h"
#include "format/renderer.h"

namespace tfmt {
namespace {

// Returns an empty string with capacity for the usual result of a pattern of `length`: placeholders
// are about as long as the integers that replace them, and text arguments add their own length.
std::wstring make_output(std::size_t length, std::span<const details::argument> arguments) {
  for (const auto& argument : arguments) {
    if (const auto* text = std::get_if<std::wstring_view>(&argument))
      length += text->size();
  }
  std::wstring output;
  output.reserve(length);
  return output;
}

}  // namespace

std::wstring details::format(std::wstring_view pattern, std::span<const argument> arguments) {
  std::wstring output = make_output(pattern.size(), arguments);
  renderer renderer(output, arguments);
  segment part;
  for (parser parts(pattern); parts.next(part);)
    renderer.add(part);
  return output;
}

}  // namespace tfmt
