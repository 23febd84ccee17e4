#include "platform/unique_resource.h"

#include <gtest/gtest.h>

#include <vector>

namespace Tamrin {
namespace {

std::vector<int> closed;

struct test_traits {
  using pointer = int;
  static pointer invalid() noexcept { return -1; }
  static void close(pointer value) { closed.push_back(value); }
};
using resource = unique_resource<test_traits>;

TEST(UniqueResource, EveryValueIsClosedExactlyOnce) {
  closed.clear();
  {
    resource a(1);
    resource b(2);
    b = std::move(a);
    EXPECT_EQ(closed, std::vector<int>{2});
    EXPECT_FALSE(a);
    resource c(std::move(b));
    c.reset(3);
    EXPECT_EQ(closed, (std::vector<int>{2, 1}));
    resource& alias = c;
    c = std::move(alias);
    c.reset(c.get());
    EXPECT_EQ(c.get(), 3);
    resource released(4);
    EXPECT_EQ(released.release(), 4);
  }
  EXPECT_EQ(closed, (std::vector<int>{2, 1, 3}));
}

}  // namespace
}  // namespace Tamrin
