#include "client/line/line_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <regex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarnwheel::client {
namespace {

// The result of converting `text` in pieces of `size` bytes.
template <class Change>
std::string Changed(Change change, std::string_view text, std::size_t size) {
  std::vector<std::byte> changed;
  const auto add = [&](const auto& bytes) {
    std::ranges::copy(bytes, std::back_inserter(changed));
  };
  for (; !text.empty(); text.remove_prefix(std::min(size, text.size())))
    add(change.convert(std::as_bytes(std::span(text.substr(0, size)))));
  if constexpr (requires { change.finish(); })
    add(change.finish());
  return {reinterpret_cast<const char*>(changed.data()), changed.size()};
}

TEST(LineText, ChangesWhereverItIsCut) {
  const std::string text = "\na\r\n\r\rb\n\n\r\n\r";
  for (const std::size_t size : {1u, 2u, 3u, 20u}) {
    EXPECT_EQ(Changed(line_end_converter("\r"), text, size), "\ra\r\r\rb\r\r\r\r");
    EXPECT_EQ(Changed(line_end_converter("\r\n"), text, size), "\r\na\r\n\r\rb\r\n\r\n\r\n\r");
    EXPECT_EQ(Changed(cr_inserter(), text, size), "\r\na\r\n\r\rb\r\n\r\n\r\n\r");
    const std::regex stamp("[0-2]\\d:[0-5]\\d:[0-6]\\d\\.\\d{3} ");
    EXPECT_EQ(std::regex_replace(Changed(time_stamper(), "a\n\nb c", size), stamp, "@"),
              "@a\n@\n@b c");
  }
}

}  // namespace
}  // namespace tarnwheel::client
