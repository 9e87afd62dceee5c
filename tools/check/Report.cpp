#include "Report.h"

#include <algorithm>
#include <utility>

#include "Json.h"
#include "base/Visible.h"

namespace ravelin::check {

namespace {

std::string nameOf(Level level) {
  switch (level) {
    case Level::ok:
      return "ok";
    case Level::note:
      return "note";
    case Level::wrong:
      return "wrong";
  }
  return "";
}

Colour colourOf(Level level) {
  switch (level) {
    case Level::ok:
      return Colour::green;
    case Level::note:
      return Colour::yellow;
    case Level::wrong:
      return Colour::red;
  }
  return Colour::faint;
}

Json jsonOf(const std::string& topic, const Finding& finding) {
  Json details = Json::object();
  for (const auto& [name, value] : finding.details) {
    details[name] = jsonText(value);
  }
  return {{"topic", topic},
          {"level", nameOf(finding.level)},
          {"code", finding.code},
          {"sentence", jsonText(finding.sentence)},
          {"details", details}};
}

}  // namespace

void Report::add(const std::string& topic, Findings findings) {
  if (!findings.empty()) {
    _topics.push_back({.name = topic, .findings = std::move(findings)});
  }
}

std::size_t Report::wrong() const {
  std::size_t count = 0;
  for (const Topic& topic : _topics) {
    count +=
        static_cast<std::size_t>(std::ranges::count(topic.findings, Level::wrong, &Finding::level));
  }
  return count;
}

std::string Report::text(const Colours& colours) const {
  constexpr std::size_t WIDTH = 7;
  std::string text;
  for (const Topic& topic : _topics) {
    text.append(topic.name).append("\n");
    for (const Finding& finding : topic.findings) {
      const std::string level = nameOf(finding.level);
      text.append("  ").append(colours.in(colourOf(finding.level), level));
      text.append(WIDTH - level.size(), ' ').append(visibleLine(finding.sentence)).append("\n");
    }
  }
  return text;
}

std::string Report::json() const {
  Json findings = Json::array();
  for (const Topic& topic : _topics) {
    for (const Finding& finding : topic.findings) {
      findings.push_back(jsonOf(topic.name, finding));
    }
  }
  const Json all{{"wrong", wrong()}, {"findings", std::move(findings)}};
  return all.dump(2) + "\n";
}

}  // namespace ravelin::check
