#include "client/line/line_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <span>
#include <string>

namespace tarnwheel::client {
namespace {

// The text that comes of `text`, given in pieces of `size` bytes.
template <class Change>
std::string Changed(Change change, const std::string& text, std::size_t size) {
  std::string changed;
  const auto add = [&](const std::vector<std::byte>& bytes) {
    for (const std::byte byte : bytes)
      changed += static_cast<char>(byte);
  };
  for (std::size_t at = 0; at < text.size(); at += size)
    add(change.convert(
        std::as_bytes(std::span(text).subspan(at, std::min(size, text.size() - at)))));
  if constexpr (requires { change.finish(); })
    add(change.finish());
  return changed;
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
