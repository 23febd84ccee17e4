// The error of parsing a command line.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tamrin {

// what() is a message for the user.
class cmd_line_syntax_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;

  // `culprit` is the offending text, `expected` describes valid text.
  cmd_line_syntax_error(const std::string& message, std::wstring_view culprit,
                        std::wstring_view expected = {})
      : std::runtime_error(message), culprit_(culprit), expected_(expected) {}

  [[nodiscard]] const std::optional<std::wstring>& culprit() const noexcept { return culprit_; }
  [[nodiscard]] const std::wstring& expected() const noexcept { return expected_; }

 private:
  std::optional<std::wstring> culprit_;
  std::wstring expected_;
};

}  // namespace Tamrin
