#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "controller/Admission.h"
#include "controller/MountedDisks.h"
#include "disk/Disk.h"
#include "disk/Queue.h"
#include "fuzz/PlainAnnouncement.h"
#include "fuzz/PlainIntake.h"
#include "fuzz/QuietLog.h"
#include "fuzz/Require.h"
#include "intake/Completeness.h"
#include "intake/EventParser.h"
#include "intake/SenderAddress.h"
#include "intake/Server.h"
#include "platform/DatagramReader.h"
#include "platform/RunLoop.h"
#include "platform/Service.h"
#include "platform/SystemLog.h"
#include "support/Udp.h"

namespace {

using ravelin::Admission;
using ravelin::Disk;
using ravelin::DiskPtr;
using ravelin::MountedDisks;
using ravelin::Queue;
using ravelin::Server;
using ravelin::Text;
using ravelin::fuzz::AnnouncedPtr;
using ravelin::fuzz::PlainIntake;
using ravelin::fuzz::require;
using ravelin::platform::RunLoop;
using ravelin::test::UdpSocket;

/// What one announcement goes through from its bytes to the mounted disks, without files and
/// without the other thread; each step is held against the plain one.
class Intake {
 public:
  explicit Intake(ravelin::fuzz::QuietLog& log) : _log(log) {}

  void takes(std::span<const std::byte> datagram, std::span<const std::byte> address) {
    const std::string message(reinterpret_cast<const char*>(datagram.data()), datagram.size());
    const auto values = ravelin::fuzz::readPlainly(message);
    _log.lines.clear();
    const DiskPtr event = ravelin::EventParser::parse(datagram);
    require(_log.lines == ravelin::fuzz::linesOf(message, values));
    require((event != nullptr) == values.has_value());
    const bool isComplete = event && !lackOf(*event);
    require(isComplete == (values && !ravelin::fuzz::missingIn(*values)));
    if (!isComplete) {
      return;
    }
    event->setSender(ravelin::senderIn(address));
    const auto outcome =
        _plain.arrives(std::make_shared<ravelin::fuzz::Announced>(event->sender(), *values), _now);
    const bool repeats = _waiting.containsReceiverEqualTo(*event);
    require(repeats == (outcome.verdict == PlainIntake::Verdict::repeats));
    if (repeats) {
      return;
    }
    const auto limit = _admission.admit(event);
    require(limit.has_value() == (outcome.verdict == PlainIntake::Verdict::dropped));
    if (limit) {
      const Admission::Time now{std::chrono::seconds(_now)};
      require(_admission.lineAbout(event->sender(), *limit, now) == outcome.line);
    }
    require(_waiting.count() == _plain.waitingCount());
  }

  /// As the handler thread does, until none waits.
  void handles(std::size_t count) {
    while (count-- > 0) {
      const AnnouncedPtr expected = _plain.next();
      const DiskPtr event = _admission.next();
      requireSame(event, expected);
      if (!event) {
        return;
      }
      const DiskPtr record = _known.find(*event);
      const bool mounts =
          event->eventName() == "disk_mounted" || event->eventName() == "disk_status";
      if (mounts && !record) {
        _known.append(event);
      } else if (event->eventName() == "disk_unmounted" && record) {
        _known.remove(*record);
      } else if (event->eventName() == "no_disk") {
        for (const DiskPtr& disk : _known.ofDevice(event->macAddress())) {
          _known.remove(*disk);
        }
      }
      _plain.handled();
      require(_known.count() == _plain.known().size());
    }
  }

  void passes(std::size_t seconds) { _now += static_cast<std::int64_t>(seconds); }

  void end() {
    const auto& waiting = _waiting.elements();
    requireSame({waiting.begin(), waiting.end()}, _plain.waiting());
    requireSame(_known.copy(), _plain.known());
    for (const AnnouncedPtr& disk : _plain.known()) {
      Disk sought;
      sought.setUuid(disk->uuid);
      requireSame(_known.find(sought), disk);
      require(_admission.isKnownOrGoingToBe(sought));
    }
  }

 private:
  static void requireSame(const DiskPtr& disk, const AnnouncedPtr& expected) {
    require((disk == nullptr) == (expected == nullptr));
    require(!disk || (disk->sender() == expected->sender && disk->eventName() == expected->event &&
                      disk->macAddress() == expected->mac && disk->ipAddress() == expected->ip &&
                      disk->uuid() == expected->uuid && disk->label() == expected->label));
  }
  static void requireSame(const std::vector<DiskPtr>& disks,
                          const std::vector<AnnouncedPtr>& expected) {
    require(disks.size() == expected.size());
    for (std::size_t index = 0; index < disks.size(); ++index) {
      requireSame(disks[index], expected[index]);
    }
  }

  ravelin::fuzz::QuietLog& _log;
  Queue _waiting;
  MountedDisks _known;
  Admission _admission{_waiting, _known};
  PlainIntake _plain;
  std::int64_t _now = 0;
};

/// The real server at a port of loopback, and those who send to it. It lives as long as the
/// process.
class Network final : public ravelin::ServerDelegate {
 public:
  static constexpr std::size_t SENDERS = 4;

  static Network& instance() {
    static const auto network = std::make_shared<Network>();
    if (network->_server.delegate() == nullptr) {
      network->_server.setDelegate(network);
      network->_start();
    }
    return *network;
  }

  /// Sends the datagram and has the intake take it.
  void deliver(std::size_t from, const std::string& datagram, Intake& intake) {
    _intake = &intake;
    _expected.push_back({.from = from, .datagram = datagram});
    log.lines.clear();
    require(_sockets.at(from).send(datagram, _port.number()));
    if (datagram.empty()) {
      // No announcement, and so it is not handed over.
      _expected.pop_back();
      _runUntil([this] { return !log.lines.empty(); });
      require(log.lines == std::vector{UNREADABLE});
    } else {
      _runUntil([this] { return _expected.empty(); });
    }
  }

  /// Sends the datagram as often as the server reads at once, all of them before it reads.
  void deliverBatch(std::size_t from, const std::string& datagram, Intake& intake) {
    _intake = &intake;
    for (int number = 0; number < BATCH; ++number) {
      _expected.push_back({.from = from, .datagram = datagram});
      require(_sockets.at(from).send(datagram, _port.number()));
    }
    _runUntil([this] { return _expected.empty(); });
  }

  /// Sends more than the system keeps. What it keeps comes, in order.
  void flood(std::size_t from, Intake& intake) {
    _intake = &intake;
    for (int number = 0; number < FLOOD; ++number) {
      _expected.push_back(
          {.from = from, .datagram = "event:no_disk;mac:" + std::to_string(number)});
      require(_sockets.at(from).send(_expected.back().datagram, _port.number()));
    }
    // Somebody else's, before which all of the flood has come; its own sender may not be heard.
    const std::size_t other = (from + 1) % SENDERS;
    _mayBeLost = true;
    _isLastThere = false;
    const auto ask = [&] {
      if (!_isLastThere) {
        require(_sockets.at(other).send(LAST, _port.number()));
      }
      return _isLastThere;
    };
    _runUntil(ask);
    _mayBeLost = false;
    _expected.clear();
    // Nobody is silenced in what comes after it.
    _server.stop();
    _start();
  }

  void server(Server& server, std::span<const std::byte> receivedData,
              std::span<const std::byte> fromAddress) override {
    require(&server == &_server);
    const std::string datagram(reinterpret_cast<const char*>(receivedData.data()),
                               receivedData.size());
    if (_mayBeLost && datagram == LAST) {
      _isLastThere = true;
      return;
    }
    while (_mayBeLost && !_expected.empty() && _expected.front().datagram != datagram) {
      _expected.pop_front();
    }
    require(!_expected.empty() && _expected.front().datagram == datagram);
    const std::size_t from = _expected.front().from;
    _expected.pop_front();
    require(Server::displayAddressForAddress(fromAddress) ==
            "127.0.0." + std::to_string(from + 2) + ":" + std::to_string(_sockets.at(from).port()));
    require(ravelin::senderIn(fromAddress) == 0x7F000002 + from);
    _intake->takes(receivedData, fromAddress);
  }

  ravelin::fuzz::QuietLog log;

 private:
  struct Sent {
    std::size_t from = 0;
    std::string datagram;
  };

  static constexpr int BATCH = 8;
  /// Far more than the receive buffer holds.
  static constexpr int FLOOD = 4000;
  static constexpr const char* LAST = "the last one";
  static inline const ravelin::fuzz::QuietLog::Line UNREADABLE{
      .level = ravelin::platform::SystemLog::Level::error, .text = "Server could not read data"};

  void _start() {
    _server.startOnAddress("127.0.0.1", _port.number());
    require(_server.port() != 0);
  }

  template <class Condition>
  static void _runUntil(const Condition& holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!holds()) {
      require(std::chrono::steady_clock::now() < end);
      RunLoop::main().runOnce(RunLoop::Seconds(0.01));
    }
  }

  const ravelin::platform::Substitute<ravelin::platform::SystemLog> _inForce{log};
  const ravelin::test::ReservedPort _port;
  const std::array<UdpSocket, SENDERS> _sockets{UdpSocket("127.0.0.2"), UdpSocket("127.0.0.3"),
                                                UdpSocket("127.0.0.4"), UdpSocket("127.0.0.5")};
  Server _server;
  Intake* _intake = nullptr;
  std::deque<Sent> _expected;
  bool _mayBeLost = false;
  bool _isLastThere = false;
};

/// What the bytes of a socket address say, whatever the system thinks of them.
void checkAddress(std::string_view bytes) {
  const auto address = std::as_bytes(std::span(bytes));
  require(!Server::displayAddressForAddress(std::nullopt));
  const Text shown = Server::displayAddressForAddress(address);
  sockaddr_in narrow{};
  sockaddr_in6 wide{};
  std::memcpy(&narrow, bytes.data(), std::min(bytes.size(), sizeof narrow));
  std::memcpy(&wide, bytes.data(), std::min(bytes.size(), sizeof wide));
  const bool isNarrow = bytes.size() >= sizeof narrow && narrow.sin_family == AF_INET;
  const bool isWide = bytes.size() >= sizeof wide && wide.sin6_family == AF_INET6;
  require(ravelin::senderIn(address) == (isNarrow ? ntohl(narrow.sin_addr.s_addr) : 0));
  // Wrapped are ::ffff:a.b.c.d and ::a.b.c.d, but not :: and ::1.
  const std::string_view raw(reinterpret_cast<const char*>(&wide.sin6_addr), 16);
  const std::string zeros(12, '\0');
  const bool isMapped = raw.starts_with(zeros.substr(2) + "\xFF\xFF");
  const bool isCompatible = raw.starts_with(zeros) &&
                            raw.substr(12) != std::string_view("\0\0\0\0", 4) &&
                            raw.substr(12) != std::string_view("\0\0\0\1", 4);
  std::array<char, INET6_ADDRSTRLEN> host{};
  if (isWide && (isMapped || isCompatible)) {
    ::inet_ntop(AF_INET, raw.data() + 12, host.data(), host.size());
    require(shown == host.data() + (":" + std::to_string(ntohs(wide.sin6_port))));
  } else if (bytes.size() > sizeof(sockaddr_storage)) {
    require(!shown);
  } else if (isNarrow) {
    ::inet_ntop(AF_INET, &narrow.sin_addr, host.data(), host.size());
    require(shown == host.data() + (":" + std::to_string(ntohs(narrow.sin_port))));
  } else if (isWide) {
    ::inet_ntop(AF_INET6, &wide.sin6_addr, host.data(), host.size());
    // With a zone, where there is one, behind the address.
    require(shown && shown->starts_with(host.data()) &&
            shown->ends_with(":" + std::to_string(ntohs(wide.sin6_port))));
  }
}

/// So many a letter stands for.
std::size_t countOf(char letter) {
  static constexpr std::array<std::size_t, 10> COUNTS{1,  2,    15,   16,   17,
                                                      60, 1023, 1024, 3072, 16384};
  return COUNTS.at(static_cast<unsigned char>(letter) % COUNTS.size());
}

/// With each # replaced by the number, and each ~ by many letters.
std::string filled(std::string_view form, std::size_t number) {
  constexpr std::size_t MANY = 60000;
  std::string text;
  for (const char character : form) {
    if (character == '#') {
      text += std::to_string(number);
    } else if (character == '~') {
      text.append(MANY, 'x');
    } else {
      text += character;
    }
  }
  return text.substr(0, ravelin::platform::DatagramReader::DATAGRAM_LIMIT);
}

/// The most that one input may have done. It takes much to reach the limits, and time that most
/// inputs must not take: those do that ask for it.
struct Allowance {
  explicit Allowance(bool isGreat)
      : datagrams(isGreat ? 18000 : 200),
        bytes((isGreat ? std::size_t{18} * 1024 : 128) * 1024),
        floods(isGreat ? 1 : 0) {}

  std::size_t datagrams;
  std::size_t bytes;
  std::size_t floods;

  bool take(std::size_t size) {
    if (datagrams == 0 || bytes < size) {
      return false;
    }
    --datagrams;
    bytes -= size;
    return true;
  }
};

/// Datagrams of a form, straight into the intake. Their senders are one or, with a step, many.
void takeMany(Intake& intake, Allowance& allowance, std::uint32_t sender, std::uint32_t step,
              std::size_t count, std::string_view form) {
  for (std::size_t number = 0; number < count; ++number, sender += step) {
    const std::string datagram = filled(form, number);
    if (datagram.empty() || !allowance.take(datagram.size())) {
      return;
    }
    const sockaddr_in from = ravelin::internetAddress(htonl(sender), htons(5000));
    intake.takes(std::as_bytes(std::span(datagram)), ravelin::test::rawBytes(from));
  }
}

}  // namespace

/// The input is lines, which begin with a letter that says what happens:
///
///     *               as the very first one: there may be much of what follows
///     0..3 TEXT       one of four senders sends it by the network
///     4..7 TEXT       the same four send it eight times before the first one is read
///     a..d COUNT TEXT the same four send many (COUNT is a letter, see above)
///     s COUNT TEXT    as many strangers send one each
///     f SENDER        one of the four sends more than the system keeps
///     h COUNT         so many waiting events are handled
///     t COUNT         so many seconds pass
///     r BYTES         all that is left is taken for a socket address
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Network& network = Network::instance();
  Intake intake(network.log);
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  Allowance allowance(rest.starts_with('*'));
  while (!rest.empty()) {
    const std::string_view whole = rest;
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.empty()) {
      continue;
    }
    const char what = line.front();
    const std::string_view text = line.substr(1);
    const char count = text.empty() ? '\0' : text.front();
    const std::string_view form = text.substr(text.empty() ? 0 : 1);
    switch (what) {
      case '0':
      case '1':
      case '2':
      case '3':
        if (allowance.take(text.size())) {
          network.deliver(static_cast<std::size_t>(what - '0'), std::string(text), intake);
        }
        break;
      case '4':
      case '5':
      case '6':
      case '7':
        if (!text.empty() && allowance.take(text.size())) {
          network.deliverBatch(static_cast<std::size_t>(what - '4'), std::string(text), intake);
        }
        break;
      case 'a':
      case 'b':
      case 'c':
      case 'd':
        takeMany(intake, allowance, 0x7F000002U + static_cast<std::uint32_t>(what - 'a'), 0,
                 countOf(count), form);
        break;
      case 's':
        takeMany(intake, allowance, 0x0A000000U, 1, countOf(count), form);
        break;
      case 'f':
        if (std::exchange(allowance.floods, 0) > 0) {
          network.flood(static_cast<unsigned char>(count) % Network::SENDERS, intake);
        }
        break;
      case 'h':
        intake.handles(countOf(count));
        break;
      case 't':
        intake.passes(countOf(count));
        break;
      case 'r':
        checkAddress(whole.substr(1));
        rest = {};
        break;
      default:
        break;
    }
  }
  intake.end();
  return 0;
}
