#include "rpc/request_load.h"

#include <vector>

#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using namespace std::chrono_literals;

constexpr RequestCost kSerial = {.is_serial = true};
constexpr RequestCost kBarrier = {.is_barrier = true};

TEST(RequestLoad, AdmitsUpToItsBounds) {
  struct row {
    RequestCost in_progress;
    std::size_t times;
    RequestCost next;
    bool admitted;
  };
  const row rows[] = {{{}, RequestLoad::kMostRequests - 1, {}, true},
                      {{}, RequestLoad::kMostRequests, {}, false},
                      {{}, 0, {RequestLoad::kMostBytes * 2}, true},
                      {{RequestLoad::kMostBytes}, 1, {1}, true},
                      {{RequestLoad::kMostBytes + 1}, 1, {}, false},
                      {kSerial, 1, {}, true},
                      {kSerial, 1, kSerial, false},
                      {{}, 1, kSerial, true},
                      {kBarrier, 1, {}, false}};
  for (const row& each : rows) {
    const auto load = std::make_shared<RequestLoad>(ostra::cancellation_source());
    std::vector<RequestLoad::Request> requests;
    for (std::size_t i = 0; i < each.times; ++i)
      requests.push_back(load->Begin(each.in_progress));
    EXPECT_EQ(load->Admits(each.next), each.admitted) << &each - rows;
    if (each.admitted)
      continue;
    EXPECT_FALSE(load->WaitFor(each.next, 1ms).get());
    const auto waiting = load->WaitFor(each.next, 1h);
    requests.pop_back();
    EXPECT_TRUE(waiting.get());
  }
}

}  // namespace
}  // namespace tether
