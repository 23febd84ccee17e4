#include "client/verb.h"

namespace tarnwheel::client {

std::span<const verb> all_verbs() {
  static const verb verbs[] = {
      {L"list", {L"SERVER"}, L"Print the ports that SERVER shares.", &list_ports},
      {L"discover", {}, L"Print the names of the servers that can be found.", &discover_servers},
      {L"send", {L"SERVER", L"PORT", L"TEXT"}, L"Send TEXT and print what comes back.", &send_text},
  };
  return verbs;
}

}  // namespace tarnwheel::client
