// How long the agent takes to build all servers anew and to renew all memberships, beside the bare
// system calls that this consists of: 100 servers, and 64 interfaces with an address each, in a
// network namespace of its own (which takes root). Prints microseconds as JSON.

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <vector>

#include "SilentLog.h"
#include "platform/Service.h"
#include "platform/SystemLog.h"
#include "support/OpenWarden.h"
#include "support/TemporaryHome.h"

namespace {

constexpr int SERVERS = 100;
constexpr int ADDRESSES = 64;
constexpr int FIRST_PORT = 20000;
constexpr int TIMES_PER_ROUND = 5;
constexpr const char* GROUP = "239.255.77.1";

using ravelin::bench::SilentLog;

bool makeNetwork(const std::string& folder) {
  if (::unshare(CLONE_NEWNET) != 0) {
    std::perror("a network namespace");
    return false;
  }
  std::ofstream("/proc/sys/net/ipv4/igmp_max_memberships") << 2 * ADDRESSES << std::flush;
  const std::string batch = folder + "/batch";
  std::ofstream commands(batch);
  commands << "link set lo up\n";
  for (int number = 0; number < ADDRESSES; number += 2) {
    const std::string first = "bench" + std::to_string(number);
    const std::string second = "bench" + std::to_string(number + 1);
    commands << "link add " << first << " type veth peer name " << second << '\n'
             << "address add 10.77." << number << ".1/24 dev " << first << '\n'
             << "address add 10.77." << number + 1 << ".1/24 dev " << second << '\n'
             << "link set " << first << " up\n"
             << "link set " << second << " up\n";
  }
  commands.close();
  return std::system(("ip -batch " + batch).c_str()) == 0;
}

void configure(const std::string& folder) {
  std::filesystem::create_directories(folder);
  std::ofstream file(folder + "/Ravelin Disk Config.plist");
  file << R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>)"
       << "<key>JoinIGMP</key><true/><key>IGMPMembershipRefreshRate</key><integer>3600</integer>"
       << "<key>MulticastAddresses</key><array>";
  for (int number = 0; number < SERVERS; ++number) {
    file << "<array><string>" << GROUP << "</string><integer>" << FIRST_PORT + number
         << "</integer></array>";
  }
  file << "</array></dict></plist>";
}

/// How many sockets are members of the group, summed over the interfaces.
int memberships() {
  std::array<char, 9> wanted{};
  std::snprintf(wanted.data(), wanted.size(), "%08X", ::inet_addr(GROUP));
  std::ifstream table("/proc/thread-self/net/igmp");
  int sum = 0;
  for (std::string line; std::getline(table, line);) {
    if (const auto position = line.find(wanted.data()); position != std::string::npos) {
      sum += std::atoi(line.c_str() + position + 8);
    }
  }
  return sum;
}

/// Does the work some times, and adds the microseconds that each time takes.
template <class Work>
void addTimes(std::vector<double>& taken, const Work& work) {
  for (int time = 0; time < TIMES_PER_ROUND; ++time) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    taken.push_back(
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
            .count());
  }
}

/// The same system calls as the agent's, and nothing else.
class BareServers {
 public:
  BareServers() : _epoll(::epoll_create1(EPOLL_CLOEXEC)) {}
  ~BareServers() {
    _stop();
    ::close(_epoll);
  }
  BareServers(const BareServers&) = delete;
  BareServers& operator=(const BareServers&) = delete;

  void rebuild() {
    _stop();
    for (int number = 0; number < SERVERS; ++number) {
      const int descriptor = ::socket(AF_INET, SOCK_DGRAM, 0);
      if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "socket");
      }
      const int on = 1;
      const int off = 0;
      ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
      sockaddr_in local{};
      local.sin_family = AF_INET;
      local.sin_port = htons(static_cast<std::uint16_t>(FIRST_PORT + number));
      const auto* const address = reinterpret_cast<const sockaddr*>(&local);
      std::ignore = ::bind(descriptor, address, sizeof local);
      ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
      ::setsockopt(descriptor, IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off);
      epoll_event event{};
      event.events = EPOLLIN;
      ::epoll_ctl(_epoll, EPOLL_CTL_ADD, descriptor, &event);
      _descriptors.push_back(descriptor);
      _takeAddresses();
      _change(descriptor, IP_ADD_MEMBERSHIP);
    }
  }

  void refresh() const {
    for (const int descriptor : _descriptors) {
      for (const in_addr_t address : _addresses) {
        _change(descriptor, address, IP_DROP_MEMBERSHIP);
        _change(descriptor, address, IP_ADD_MEMBERSHIP);
      }
    }
  }

 private:
  void _takeAddresses() {
    ifaddrs* interfaces = nullptr;
    if (::getifaddrs(&interfaces) != 0) {
      return;
    }
    _addresses.clear();
    for (const ifaddrs* entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
      if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
        continue;
      }
      sockaddr_in local{};
      std::memcpy(&local, entry->ifa_addr, sizeof local);
      if (local.sin_addr.s_addr != htonl(INADDR_LOOPBACK)) {
        _addresses.push_back(local.sin_addr.s_addr);
      }
    }
    ::freeifaddrs(interfaces);
  }

  static void _change(int descriptor, in_addr_t address, int option) {
    ip_mreq request{};
    request.imr_multiaddr.s_addr = ::inet_addr(GROUP);
    request.imr_interface.s_addr = address;
    ::setsockopt(descriptor, IPPROTO_IP, option, &request, sizeof request);
  }

  void _change(int descriptor, int option) const {
    for (const in_addr_t address : _addresses) {
      _change(descriptor, address, option);
    }
  }

  void _stop() {
    for (const int descriptor : _descriptors) {
      ::epoll_ctl(_epoll, EPOLL_CTL_DEL, descriptor, nullptr);
      ::close(descriptor);
    }
    _descriptors.clear();
  }

  int _epoll;
  std::vector<int> _descriptors;
  std::vector<in_addr_t> _addresses;
};

void print(const char* name, std::vector<double> taken, const char* end) {
  std::ranges::sort(taken);
  std::printf("  \"%s\": {\"median\": %.1f, \"worst\": %.1f}%s\n", name, taken[taken.size() / 2],
              taken.back(), end);
}

bool allJoined(const char* who) {
  const int joined = memberships();
  if (joined != SERVERS * ADDRESSES) {
    std::fprintf(stderr, "%s: %d memberships instead of %d\n", who, joined, SERVERS * ADDRESSES);
    return false;
  }
  return true;
}

int measure(int rounds) {
  const ravelin::test::TemporaryHome home;
  SilentLog log;
  const ravelin::platform::Substitute<ravelin::platform::SystemLog> silence(log);
  if (!makeNetwork(home.path())) {
    return 1;
  }
  configure(home.userSupport());
  std::vector<double> rebuild;
  std::vector<double> refresh;
  std::vector<double> bareRebuild;
  std::vector<double> bareRefresh;
  // In turns, so that other load on the machine disturbs both alike.
  for (int round = 0; round < rounds; ++round) {
    {
      ravelin::test::OpenWarden agent;
      agent._initializeServers();
      addTimes(rebuild, [&] { agent._initializeServers(); });
      addTimes(refresh, [&] { agent._refreshIGMPMembership(); });
      if (!allJoined("the agent")) {
        return 1;
      }
    }
    BareServers bare;
    bare.rebuild();
    addTimes(bareRebuild, [&] { bare.rebuild(); });
    addTimes(bareRefresh, [&] { bare.refresh(); });
    if (!allJoined("the bare system calls")) {
      return 1;
    }
  }
  std::puts("{");
  print("rebuild", rebuild, ",");
  print("bare rebuild", bareRebuild, ",");
  print("refresh", refresh, ",");
  print("bare refresh", bareRefresh, "");
  std::puts("}");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view argument = argc == 2 ? argv[1] : "10";
  int rounds = 0;
  std::from_chars(argument.data(), argument.data() + argument.size(), rounds);
  if (argc > 2 || rounds <= 0) {
    std::fputs("usage: ravelin-disk-network-bench [ROUNDS]\n", stderr);
    return 2;
  }
  try {
    return measure(rounds);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "ravelin-disk-network-bench: %s\n", problem.what());
    return 1;
  }
}
