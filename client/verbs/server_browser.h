// The search for servers that announce themselves by DNS-SD.
#pragma once

#include <string>
#include <vector>

namespace tarnwheel::client {

// Searches the local link from its construction to its destruction. Where Windows cannot search, or
// refuses to, it finds nothing: mailslots are the other way to find a server. A process makes one.
class server_browser {
 public:
  server_browser();
  server_browser(const server_browser&) = delete;
  server_browser& operator=(const server_browser&) = delete;
  ~server_browser();

  // The computers found up to now, in any order, 1,000 at most. A server that has taken its
  // announcement back meanwhile is among them. Any thread.
  [[nodiscard]] std::vector<std::wstring> computers() const;

 private:
  class search;

  search* search_ = nullptr;  // null when there is none; never destroyed, see rpc/dns_sd.h
};

}  // namespace tarnwheel::client
