#include "async/errors.h"

#include <new>
#include <string>

#include "platform/unique_resource.h"
#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

template <class Action>
DWORD caught(Action action) {
  try {
    action();
  } catch (...) {
    return static_cast<DWORD>(details::current_hresult());
  }
  return 0;
}

TEST(Errors, EveryFailureHasItsHresult) {
  EXPECT_EQ(caught([] { details::throw_win32(0x12345); }), 0x80072345);
  EXPECT_EQ(caught([] { details::throw_win32(0x80004005); }), 0x80004005);
  ::SetLastError(ERROR_SHARING_VIOLATION);
  EXPECT_EQ(caught([] { details::check_file(INVALID_HANDLE_VALUE); }), 0x80070020);
  EXPECT_EQ(caught([] { throw std::bad_alloc(); }), 0x8007000E);
  EXPECT_EQ(caught([] { throw 1; }), 0x8000FFFF);
}

struct letter_traits {
  using pointer = char;
  static pointer invalid() noexcept { return '-'; }
  static void close(pointer value) { closed += value; }
  static inline std::string closed;
};

TEST(UniqueResource, EveryValueIsClosedExactlyOnce) {
  using letter = Tamrin::unique_resource<letter_traits>;
  {
    letter a('a'), b('b');
    b = std::move(a);
    letter c(std::move(b));
    c.reset('c');
    c.reset(c.get());
    EXPECT_EQ(letter('d').release(), 'd');
    EXPECT_EQ(letter_traits::closed, "ba");
  }
  EXPECT_EQ(letter_traits::closed, "bac");
}

}  // namespace
}  // namespace ostra
