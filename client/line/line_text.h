// Conversions that a user may request for the text of a line. Each takes successive blocks of
// bytes; a line, or a line end, may span several blocks.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace tarnwheel::client {

// The bytes of the line end named none, cr, lf or crlf. Throws cmd_line_syntax_error for any other
// name, and for "none" unless `may_be_none`.
[[nodiscard]] std::string_view parse_line_end(std::wstring_view name, bool may_be_none);

// Replaces each LF, together with the CR before it if any, by another line end; a lone CR stays.
class line_end_converter {
 public:
  // `end` must outlive this and must not be empty.
  explicit line_end_converter(std::string_view end) : end_(end) {}

  // A CR at the end of the block is held back until the next one.
  [[nodiscard]] std::vector<std::byte> convert(std::span<const std::byte> block);
  // Returns what is held back; call it at the end of the text.
  [[nodiscard]] std::vector<std::byte> finish();

 private:
  const std::string_view end_;
  bool kept_cr_ = false;
};

// Inserts a CR before each LF that has none, and holds nothing back.
class cr_inserter {
 public:
  [[nodiscard]] std::vector<std::byte> convert(std::span<const std::byte> block);

 private:
  std::byte last_{};
};

// Puts the local time, "hh:mm:ss.mmm " in ASCII, before the first byte of each line.
class time_stamper {
 public:
  // The block is taken to have arrived just now.
  [[nodiscard]] std::vector<std::byte> convert(std::span<const std::byte> block);

 private:
  bool begins_line_ = true;
};

}  // namespace tarnwheel::client
