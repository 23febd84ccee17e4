#include "client/verbs/server_browser.h"

#include <memory>
#include <mutex>
#include <new>

#include "async/srw_lock.h"
#include "rpc/dns_sd.h"

namespace tarnwheel::client {

class server_browser::search {
 public:
  explicit search(const tether::dns_sd_functions& dns) : dns_(dns) {}

  [[nodiscard]] bool start();
  void cancel() { dns_.cancel_browse(&cancel_); }
  [[nodiscard]] found_servers servers() const;

 private:
  static void WINAPI on_result(DWORD status, void* context, DNS_RECORD* records);

  void add(const DNS_RECORD& record);

  const tether::dns_sd_functions& dns_;
  DNS_SERVICE_BROWSE_REQUEST request_ = {};
  DNS_SERVICE_CANCEL cancel_ = {};

  mutable ostra::srw_lock lock_;
  found_servers servers_;  // guarded by lock_
};

bool server_browser::search::start() {
  request_.Version = DNS_QUERY_REQUEST_VERSION1;
  request_.QueryName = tether::kServiceType;
  request_.pBrowseCallback = &on_result;
  request_.pQueryContext = this;
  return dns_.browse(&request_, &cancel_) == static_cast<DNS_STATUS>(tether::kDnsRequestPending);
}

// Called on a thread of Windows for each announcement, and once more after the cancellation. The
// callback frees the records.
void WINAPI server_browser::search::on_result(DWORD status, void* context, DNS_RECORD* records) {
  auto& found = *static_cast<search*>(context);
  for (const auto* record = records; record != nullptr; record = record->pNext) {
    if (status == ERROR_SUCCESS && record->wType == DNS_TYPE_PTR)
      found.add(*record);
  }
  if (records != nullptr)
    found.dns_.free_records(records, DnsFreeRecordList);
}

void server_browser::search::add(const DNS_RECORD& record) {
  constexpr DWORD kWithdrawn = 0;  // the time to live of a withdrawn announcement
  const auto* const name = record.Data.PTR.pNameHost;
  if (name == nullptr || record.dwTtl == kWithdrawn)
    return;
  try {
    auto computer = tether::announced_computer(name);
    const std::lock_guard guard(lock_);
    if (computer)
      servers_.add(*std::move(computer));
  } catch (const std::bad_alloc&) {
    // Out of memory: the server is not found.
  }
}

found_servers server_browser::search::servers() const {
  const std::lock_guard guard(lock_);
  return servers_;
}

server_browser::server_browser() {
  const auto* const dns = tether::find_dns_sd();
  if (dns == nullptr)
    return;
  auto started = std::make_unique<search>(*dns);
  if (started->start())
    search_ = started.release();
}

server_browser::~server_browser() {
  if (search_ != nullptr)
    search_->cancel();
}

found_servers server_browser::servers() const {
  return search_ == nullptr ? found_servers() : search_->servers();
}

}  // namespace tarnwheel::client
