// Output for scripts: one JSON array of objects.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace tarnwheel::client {

class json_array {
 public:
  struct field {
    std::wstring_view name;
    std::wstring_view value;
  };

  // Adds an object with these fields, whose values may be any text.
  void add(std::initializer_list<field> fields);

  // The array with a line end, one object per line. Characters beyond ASCII are escaped, so that
  // the text survives any code page.
  [[nodiscard]] std::wstring text() const;

 private:
  std::wstring objects_;
};

}  // namespace tarnwheel::client
