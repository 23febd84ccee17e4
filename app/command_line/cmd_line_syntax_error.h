// The one failure of reading a command line.
#pragma once

#include <stdexcept>

namespace Tamrin {

// what() is a message for the user.
class cmd_line_syntax_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Tamrin
