// The search for servers that announce themselves by DNS-SD.
#pragma once

#include "client/verbs/discover.h"

namespace tarnwheel::client {

// Searches the local link from construction to destruction. Where Windows cannot search, or refuses
// to, it finds nothing: mailslots are the other way to find a server. A process makes only one.
class server_browser {
 public:
  server_browser();
  server_browser(const server_browser&) = delete;
  server_browser& operator=(const server_browser&) = delete;
  ~server_browser();

  // The servers found so far, including those that have since withdrawn. Any thread.
  [[nodiscard]] found_servers servers() const;

 private:
  class search;

  search* search_ = nullptr;  // null when there is none; never destroyed, see rpc/dns_sd.h
};

}  // namespace tarnwheel::client
