#include "async/errors.h"

#include <new>

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

}  // namespace
}  // namespace ostra
