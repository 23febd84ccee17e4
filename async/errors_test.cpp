#include "async/errors.h"

#include <new>

#include "tests/support/unit/testing.h"

namespace ostra {
namespace {

using testing_support::code_of;

TEST(Errors, EveryFailureHasItsHresult) {
  EXPECT_EQ(code_of([] { details::throw_win32(0x12345); }), HRESULT(0x80072345));
  EXPECT_EQ(code_of([] { details::throw_win32(0x80004005); }), HRESULT(0x80004005));
  EXPECT_EQ(code_of([] { throw std::bad_alloc(); }), E_OUTOFMEMORY);
  EXPECT_EQ(code_of([] { throw 1; }), E_UNEXPECTED);
}

}  // namespace
}  // namespace ostra
