#include "server/announcement.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "async/auto_reset_event.h"
#include "async/errors.h"
#include "async/timer.h"
#include "log/log.h"
#include "rpc/discovery_datagram.h"
#include "rpc/dns_sd.h"
#include "rpc/iserver_remote.h"

namespace tarnwheel {
namespace {

using ostra::details::to_hresult;

constexpr WORD kFileSharingPort = 445;  // carries the pipe
constexpr wchar_t kVersion[] = L"1.01";
constexpr std::chrono::seconds kPublicationLimit(30);
constexpr std::chrono::seconds kWithdrawalLimit(2);

// One request, which Windows completes with a callback.
struct request_state {
  explicit request_state(const ostra::cancellation_token& token = {}) : is_complete(token) {}

  std::atomic<DWORD> status = tether::kDnsRequestPending;
  ostra::auto_reset_event is_complete;  // set after the status
};

// Never destroyed once published; rpc/dns_sd.h says why. One coroutine calls publish(), then
// withdraw().
class announcement {
 public:
  announcement(const tether::dns_sd_functions& dns, const ostra::cancellation_token& token);

  // Completes with Windows' result; fails with operation_cancelled when the token is cancelled.
  ostra::future<HRESULT> publish();

  ostra::future<void> withdraw();

  [[nodiscard]] const std::wstring& name() const noexcept { return name_; }

 private:
  static void WINAPI on_completion(DWORD status, void* context, PDNS_SERVICE_INSTANCE instance);

  // Constant after construction: Windows writes to none of it, const or not.
  const tether::dns_sd_functions& dns_;
  const std::wstring computer_ = tether::computer_name();
  std::wstring name_ = computer_ + L"." + tether::kServiceType;
  std::wstring host_ = computer_ + L".local";
  std::wstring text_[4] = {L"version", L"pipe", kVersion, tether::kServerPipe};
  wchar_t* keys_[2] = {text_[0].data(), text_[1].data()};
  wchar_t* values_[2] = {text_[2].data(), text_[3].data()};
  DNS_SERVICE_INSTANCE instance_ = {};

  request_state publication_;
  request_state withdrawal_;
  DNS_SERVICE_REGISTER_REQUEST request_ = {};
  DNS_SERVICE_CANCEL cancel_ = {};
};

announcement::announcement(const tether::dns_sd_functions& dns,
                           const ostra::cancellation_token& token)
    : dns_(dns), publication_(token) {
  instance_.pszInstanceName = name_.data();
  instance_.pszHostName = host_.data();
  instance_.wPort = kFileSharingPort;
  instance_.dwPropertyCount = 2;
  instance_.keys = keys_;
  instance_.values = values_;
  request_.Version = DNS_QUERY_REQUEST_VERSION1;
  request_.pServiceInstance = &instance_;
  request_.pRegisterCompletionCallback = &on_completion;
}

// Runs on a thread of Windows. `instance` is a copy, which the callback must free.
void WINAPI announcement::on_completion(DWORD status, void* context,
                                        PDNS_SERVICE_INSTANCE instance) {
  if (instance != nullptr)
    tether::find_dns_sd()->free_instance(instance);
  auto& request = *static_cast<request_state*>(context);
  request.status = status;
  request.is_complete.set();
}

ostra::future<HRESULT> announcement::publish() {
  request_.pQueryContext = &publication_;
  const DWORD started = dns_.register_instance(&request_, &cancel_);
  if (started != tether::kDnsRequestPending) {
    publication_.status = started;
    co_return to_hresult(started);
  }
  auto completion = publication_.is_complete.wait_for(kPublicationLimit);
  const bool is_complete = co_await completion;
  co_return to_hresult(is_complete ? publication_.status.load() : ERROR_TIMEOUT);
}

ostra::future<void> announcement::withdraw() {
  const bool was_cancelled = publication_.status == tether::kDnsRequestPending &&
                             dns_.cancel_registration(&cancel_) == ERROR_SUCCESS;
  if (was_cancelled || publication_.status != ERROR_SUCCESS)
    co_return;
  request_.pQueryContext = &withdrawal_;
  if (dns_.deregister_instance(&request_, nullptr) != tether::kDnsRequestPending)
    co_return;
  auto completion = withdrawal_.is_complete.wait_for(kWithdrawalLimit);
  co_await completion;
}

// Fails when `token` is cancelled; never completes otherwise.
ostra::future<void> cancellation_of(ostra::cancellation_token token) {
  ostra::auto_cancel_timer timer(token);
  for (;;) {
    auto day = timer.wait(std::chrono::hours(24));
    co_await day;
  }
}

ostra::future<void> keep_published(announcement& published, ostra::cancellation_token token) {
  HRESULT outcome = S_OK;
  try {
    auto publication = published.publish();
    outcome = co_await publication;
    if (SUCCEEDED(outcome)) {
      logging::write(logging::debug, L"The server is announced as {0}", published.name());
      auto cancelled = cancellation_of(token);
      co_await cancelled;
    }
  } catch (const ostra::operation_cancelled&) {
    outcome = S_OK;
  }
  auto withdrawal = published.withdraw();
  co_await withdrawal;
  ostra::details::check_hresult(outcome);
}

}  // namespace

ostra::future<void> announce(ostra::cancellation_token token) {
  const auto* const dns = tether::find_dns_sd();
  if (dns == nullptr) {
    logging::write(logging::debug, L"Windows has no DNS-SD here; the server is not announced");
    co_return;
  }
  HRESULT outcome = S_OK;
  try {
    auto made = std::make_unique<announcement>(*dns, token);
    auto kept = keep_published(*made.release(), token);
    co_await kept;
  } catch (...) {
    outcome = ostra::details::current_hresult();
  }
  if (FAILED(outcome) && !token.is_cancelled())
    logging::write(logging::warning, L"The server cannot be announced by DNS-SD: {0ub016xp}",
                   outcome);
}

}  // namespace tarnwheel
