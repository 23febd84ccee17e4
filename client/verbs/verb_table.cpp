#include "client/verbs/verb_table.h"

namespace tarnwheel::client {

namespace {

const verb kVerbs[] = {
    {L"list",
     {L"[SERVER]"},
     L"Print the ports that SERVER, or this machine, shares.",
     L"workshop-pc --json",
     &add_list_options,
     &list_ports},
    {L"discover",
     {},
     L"Print the names of the servers that can be found.",
     L"--timeout 5000",
     &add_discover_options,
     &discover_servers},
    {L"send",
     {L"SERVER", L"PORT", L"TEXT"},
     L"Send TEXT and print the answer.",
     L"workshop-pc COM5 *IDN? --eol lf --baud 9600",
     &add_send_options,
     &send_text},
    {L"term",
     {L"SERVER", L"PORT"},
     L"Use PORT in a terminal; Ctrl+] ? shows its keys.",
     L"workshop-pc COM5 --baud 9600 --log session.log",
     &add_terminal_options,
     &open_terminal},
    {L"pipe",
     {L"SERVER", L"PORT"},
     L"Connect PORT to standard input and output.",
     L"workshop-pc COM5 --quiet 1000 <in.txt >out.txt",
     &add_pipe_options,
     &pipe_port},
    {L"bridge",
     {L"SERVER", L"PORT"},
     L"Offer PORT by TCP, a pipe or another COM port.",
     L"workshop-pc COM5 --listen 4000",
     &add_bridge_options,
     &bridge_port},
};

}  // namespace

std::span<const verb> all_verbs() {
  return kVerbs;
}

}  // namespace tarnwheel::client
