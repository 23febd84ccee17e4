#include "client/verbs/discover.h"

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "async/errors.h"
#include "async/within.h"
#include "client/verbs/client_options.h"
#include "client/verbs/json.h"
#include "client/verbs/server_browser.h"
#include "client/verbs/verb_table.h"
#include "console/print.h"
#include "format/format.h"
#include "rpc/discovery_datagram.h"
#include "rpc/mailslot.h"
#include "rpc/security_descriptor.h"

namespace tarnwheel::client {
namespace {

using console::print;
using console::standard_stream;
using ostra::details::to_hresult;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr DWORD kRemoteMailslotsOff = 3025;  // on current Windows, unless they are turned on

constexpr known_cause kMailslotCauses[] = {
    {ERROR_ALREADY_EXISTS, L"Another discover is running on this machine", failure::connection},
};

constexpr known_cause kQueryCauses[] = {
    {kRemoteMailslotsOff,
     L"Only this machine was asked, since Windows has remote mailslots turned off; an "
     L"administrator turns them on with \"Set-SmbClientConfiguration -EnableMailslots $true\" on "
     L"this machine and \"Set-SmbServerConfiguration -EnableMailslots $true\" on the servers, and "
     L"every other verb takes a server's name directly"},
};

std::shared_ptr<tether::Mailslot> make_answer_mailslot() {
  // Servers write to it, under other accounts and from other machines.
  const auto security = tether::security_descriptor::everyone(GENERIC_READ | GENERIC_WRITE);
  SECURITY_ATTRIBUTES attributes = security.attributes();
  auto mailslot = std::make_shared<tether::Mailslot>();
  const HRESULT outcome = mailslot->Create(tether::kAnswerMailslot, &attributes);
  if (FAILED(outcome))
    throw explain(outcome, L"The mailslot for the answers", kMailslotCauses, failure::connection);
  return mailslot;
}

// Abandons the query at `limit` if the receiver's mailslot has no room for it.
HRESULT send_query(std::wstring_view target, const std::vector<std::byte>& query,
                   milliseconds limit) {
  const auto mailslot = std::make_shared<tether::Mailslot>();
  HRESULT outcome = S_OK;
  try {
    outcome = mailslot->Open(target, tether::kQueryMailslot);
    if (SUCCEEDED(outcome))
      ostra::within(mailslot->Write(query), limit).get();
  } catch (const ostra::hresult_error& error) {
    outcome = error.code();
  }
  mailslot->Cancel();
  return outcome;
}

// Returns a line for each query that could not be sent.
std::wstring send_queries(milliseconds limit) {
  const auto query = tether::make_datagram(tether::computer_name());
  std::wstring failures;
  for (const auto* target : {kThisMachine, kAllMachines}) {
    const auto failure = query_failure(target, send_query(target, query, limit));
    if (failure)
      failures += failure->message() + L"\n";
  }
  return failures;
}

// The next message, empty if it is too long for an answer; nullopt if none arrives in time.
std::optional<std::vector<std::byte>> read_message(tether::Mailslot& mailslot, milliseconds limit) {
  try {
    return ostra::within(mailslot.Read(), limit).get();
  } catch (const ostra::hresult_error& error) {
    if (error.code() == to_hresult(ERROR_TIMEOUT))
      return std::nullopt;
    if (error.code() != to_hresult(ERROR_INSUFFICIENT_BUFFER))
      throw;
    return std::vector<std::byte>();
  }
}

found_servers collect_answers(tether::Mailslot& mailslot, milliseconds limit) {
  found_servers servers;
  const auto deadline = steady_clock::now() + limit;
  for (auto left = limit; left > milliseconds::zero();
       left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now())) {
    const auto message = read_message(mailslot, left);
    if (!message)
      break;
    servers.add_answer(*message);
  }
  mailslot.Cancel();
  return servers;
}

}  // namespace

void found_servers::add_answer(std::span<const std::byte> answer) {
  try {
    add(tether::name_in(answer));
  } catch (const ostra::hresult_error&) {
    // It does not name a computer.
  }
}

std::wstring found_servers::lines() const {
  std::wstring lines;
  for (const auto& name : names_)
    lines += name + L"\n";
  return lines;
}

std::wstring found_servers::json() const {
  json_array array;
  for (const auto& name : names_)
    array.add({{L"server", name}});
  return array.text();
}

std::optional<client_error> query_failure(std::wstring_view target, HRESULT outcome) {
  const bool local = target == kThisMachine;
  const bool no_server = local && outcome == to_hresult(ERROR_FILE_NOT_FOUND);
  if (SUCCEEDED(outcome) || no_server)
    return std::nullopt;
  return explain(outcome, local ? L"Asking this machine" : L"Asking the other machines",
                 kQueryCauses);
}

void add_discover_options(Tamrin::command_line& line) {
  add_timeout_option(line);
  add_json_option(line);
}

found_servers find_servers(milliseconds limit) {
  try {
    const auto mailslot = make_answer_mailslot();
    const server_browser announced;
    const std::wstring failures = send_queries(limit);
    found_servers servers = collect_answers(*mailslot, limit);
    servers.merge(announced.servers());
    if (servers.empty())
      print(standard_stream::error, failures);
    return servers;
  } catch (const ostra::hresult_error& error) {
    throw explain(error.code(), L"Looking for servers", {}, failure::connection);
  }
}

client_error no_server_error(milliseconds limit) {
  const auto count = static_cast<std::uint32_t>(limit.count());
  return client_error(tfmt::format(L"No server answered within {0} ms", count),
                      to_hresult(ERROR_TIMEOUT), failure::connection);
}

void discover_servers(const invocation& request) {
  const auto limit = waiting_limit_of(request.options);
  const found_servers servers = find_servers(limit);
  const bool json = request.options.at(kJsonOption).flag();
  print_result(json ? servers.json() : servers.lines());
  if (servers.empty())
    throw no_server_error(limit);
}

}  // namespace tarnwheel::client
