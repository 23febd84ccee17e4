#include "rpc/request_load.h"

#include <vector>

#include "tests/support/unit/testing.h"

namespace tether {
namespace {

using namespace std::chrono_literals;

TEST(RequestLoad, AdmitsUpToItsBounds) {
  constexpr RequestCost kSerial = {.is_serial = true};
  const struct {
    RequestCost in_progress;
    std::size_t times;
    RequestCost next;
    bool admitted;
  } rows[] = {{{}, RequestLoad::kMostRequests - 1, {}, true},
              {{}, RequestLoad::kMostRequests, {}, false},
              {{RequestLoad::kMostBytes}, 1, {1}, true},
              {{RequestLoad::kMostBytes + 1}, 1, {}, false},
              {kSerial, 1, {}, true},
              {kSerial, 1, kSerial, false},
              {{.is_barrier = true}, 1, {}, false}};
  for (const auto& [in_progress, times, next, admitted] : rows) {
    const auto load = std::make_shared<RequestLoad>(ostra::cancellation_source());
    std::vector<RequestLoad::Request> requests;
    while (requests.size() < times)
      requests.push_back(load->Begin(in_progress));
    EXPECT_EQ(load->Admits(next), admitted) << times;
    EXPECT_EQ(load->WaitFor(next, 1ms).get(), admitted) << times;
    const auto waiting = load->WaitFor(next, 1h);
    requests.pop_back();
    EXPECT_TRUE(waiting.get());
  }
}

}  // namespace
}  // namespace tether
