#include "Transcript.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "Json.h"
#include "Report.h"
#include "base/Visible.h"
#include "common/CommandLine.h"

namespace ravelin::check {

namespace {

/// How much of a text is shown.
constexpr std::size_t SHOWN = 1000;

std::string_view textOf(std::span<const std::byte> payload) {
  return {reinterpret_cast<const char*>(payload.data()), payload.size()};
}

/// Beginning with the beginning, which says what it is.
std::string shown(std::string_view text) {
  if (text.size() <= SHOWN) {
    return visible(text);
  }
  return visible(text.substr(0, SHOWN)) + "... (" + std::to_string(text.size()) + " bytes)";
}

std::string formatted(std::chrono::system_clock::time_point time, const char* form) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), form, &local);
  return text.data();
}

std::string milliseconds(std::chrono::system_clock::time_point time) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(time - whole).count();
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), ".%03d", static_cast<int>(rest));
  return text.data();
}

Json fieldsOf(const Disk& announced) {
  Json fields = Json::object();
  const auto add = [&](const char* key, const Text& value) {
    if (value) {
      fields[key] = shown(*value);
    }
  };
  add("event", announced.eventName());
  add("mac", announced.macAddress());
  add("ip", announced.ipAddress());
  add("uuid", announced.uuid());
  add("label", announced.label());
  return fields;
}

std::string nameOf(Verdict::Kind kind) {
  switch (kind) {
    case Verdict::Kind::complete:
      return "complete";
    case Verdict::Kind::idle:
      return "idle";
    case Verdict::Kind::nothing:
      return "nothing";
  }
  return "";
}

Json jsonOf(const Heard& heard, const ImaginedAgent::Judgement& judgement) {
  const Target& target = heard.target;
  return {{"time", formatted(heard.time, "%Y-%m-%dT%H:%M:%S") + milliseconds(heard.time) +
                       formatted(heard.time, "%z")},
          {"sender", heard.sender},
          {"group", target.group ? Json(*target.group) : Json()},
          {"port", target.port},
          {"size", heard.payload.size()},
          {"text", shown(textOf(heard.payload))},
          {"fields", fieldsOf(*judgement.announced)},
          {"kind", nameOf(judgement.verdict.kind)},
          {"code", judgement.verdict.code},
          {"sentence", jsonText(judgement.verdict.sentence)}};
}

Colour colourOf(Verdict::Kind kind) {
  switch (kind) {
    case Verdict::Kind::complete:
      return Colour::green;
    case Verdict::Kind::idle:
      return Colour::yellow;
    case Verdict::Kind::nothing:
      return Colour::red;
  }
  return Colour::faint;
}

}  // namespace

std::optional<Failure> Transcript::begin(const Findings& findings) const {
  if (!_json) {
    Report report;
    report.add("listening", findings);
    return print(report.text(_colours) + "\n");
  }
  Json list = Json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"code", finding.code}, {"sentence", jsonText(finding.sentence)}});
  }
  return print(Json{{"listening", std::move(list)}}.dump() + "\n");
}

std::optional<Failure> Transcript::add(const Heard& heard,
                                       const ImaginedAgent::Judgement& judgement) {
  const Verdict& verdict = judgement.verdict;
  ++(verdict.kind == Verdict::Kind::nothing ? _passedOver : _complete);
  return print(_json ? jsonOf(heard, judgement).dump() + "\n" : _textOf(heard, verdict));
}

std::string Transcript::_textOf(const Heard& heard, const Verdict& verdict) const {
  const std::string from = formatted(heard.time, "%H:%M:%S") + milliseconds(heard.time) + " from " +
                           heard.sender + " to " + heard.target.described() +
                           (heard.target.group ? "" : " of this machine alone");
  // A sentence may name a part of what came in.
  return _colours.in(Colour::faint, visibleLine(from)) + "\n    " + shown(textOf(heard.payload)) +
         "\n    " + _colours.in(colourOf(verdict.kind), shown(verdict.sentence)) + "\n";
}

std::optional<Failure> Transcript::end(std::chrono::duration<double> passed) const {
  if (_json) {
    return print(
        Json{{"summary",
              {{"seconds", passed.count()}, {"complete", _complete}, {"passedOver", _passedOver}}}}
            .dump() +
        "\n");
  }
  std::array<char, 32> seconds{};
  std::snprintf(seconds.data(), seconds.size(), "%.1f", passed.count());
  return print("\n" + std::to_string(_complete + _passedOver) + " announcements in " +
               seconds.data() + " s: " + std::to_string(_complete) + " complete, " +
               std::to_string(_passedOver) + " passed over\n");
}

}  // namespace ravelin::check
