#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "disk/Disk.h"
#include "support/Announcements.h"
#include "support/RecordingLog.h"

namespace ravelin::test {

/// What a label means for a desktop folder in which there is a folder "sub" and nothing else, and
/// shortcuts are files.
struct Label {
  std::string text;
  std::string inUrl;
  bool mayStandOnDesktop;
  /// What the removal script removes: the last component, or nothing when it does not run.
  std::optional<std::string> removedByScript;
};

inline const std::vector<Label>& labels() {
  static const std::vector<Label> ALL{
      {"One", "One", true, "One.app"},
      {"Two Words", "Two%20Words", true, "Two Words.app"},
      {"", "", true, ".app"},
      {"50%", "50%25", true, "50%.app"},
      {"L\xC3\xADn", "(null)", true, "L\xC3\xADn.app"},
      {"sub/One", "sub/One", true, "One.app"},
      {"gone/One", "gone/One", false, "One.app"},
      {"../One", "../One", false, "One.app"},
      {"sub/../One", "sub/../One", false, "One.app"},
      {std::string("a\0b", 3), "a%00b", false, std::nullopt},
      {"Quo\"te", "Quo%22te", false, std::nullopt},
      {"Back\\slash", "Back%5Cslash", false, std::nullopt},
  };
  return ALL;
}

inline const Label& labelOf(const Text& text) {
  return *std::ranges::find_if(labels(), [&](const Label& label) { return label.text == text; });
}

/// What the controller does, in its plainest form: lists, walked from their first entry to the
/// last.
class PlainModel {
 public:
  struct Record {
    Texts texts;
    Disk::Date lastUpdateTime;
    bool operator==(const Record&) const = default;
  };

  /// Shortcuts are script applications where a script is stored for each: such a script has a name
  /// and no path.
  PlainModel(bool removesByScript, bool shortcutsAreApplications)
      : _removesByScript(removesByScript), _shortcutsAreApplications(shortcutsAreApplications) {}

  /// An announcement arrives; it waits unless it repeats one that does.
  void arrives(const Texts& event) {
    if (event.event == "disk_mounted" || event.event == "disk_unmounted") {
      lines.push_back(info(receivedLine(datagram(event), event)));
    }
    const bool repeats = std::ranges::any_of(
        waiting, [&](const Texts& other) { return makeDisk(other)->isEqual(*makeDisk(event)); });
    if (!repeats) {
      waiting.push_back(event);
    }
  }

  /// The handler thread takes what waits.
  void tick(Disk::Date now) {
    for (const Texts& event : std::exchange(waiting, {})) {
      process(event, now);
    }
  }

  void process(const Texts& event, Disk::Date now) {
    const auto known = std::ranges::find_if(mounted, [&](const Record& record) {
      return event.uuid && record.texts.uuid == event.uuid;
    });
    if (event.event == "disk_mounted" || event.event == "disk_status") {
      if (known != mounted.end()) {
        known->lastUpdateTime = now;
        return;
      }
      if (event.event == "disk_status") {
        lines.push_back(info("Disk " + *event.label +
                             " is being mounted because it was already mounted on the device as "
                             "stated in disk_status message"));
      }
      const Label& label = labelOf(event.label);
      if (label.mayStandOnDesktop &&
          (!_shortcutsAreApplications || label.text.find('/') == std::string::npos)) {
        desktop[label.text + ".app"] = "smb://guest:@" + *event.ip + "/" + label.inUrl;
      }
      mounted.push_back({.texts = event, .lastUpdateTime = now});
    } else if (event.event == "disk_unmounted") {
      if (known != mounted.end()) {
        _unmount(known->texts);
      }
    } else if (event.event == "no_disk") {
      for (const Record& record : std::vector(mounted)) {
        if (record.texts.mac == event.mac) {
          lines.push_back(info("Disk " + *record.texts.label +
                               " is being unmounted because it was already unmounted on the "
                               "device as stated in no_disk message"));
          _unmount(record.texts);
        }
      }
    }
  }

  void check(Disk::Date now) {
    std::vector<Texts> stale;
    for (const Record& record : mounted) {
      const double silence = std::chrono::duration<double>(now - record.lastUpdateTime).count();
      if (silence > 120.0) {
        stale.push_back(record.texts);
        lines.push_back(info("Disk " + *record.texts.label + " has not been updated in " +
                             std::to_string(silence) +
                             " seconds, so it is assumed to be unmounted!"));
      }
    }
    for (const Texts& texts : stale) {
      _unmount(texts);
    }
  }

  void unmountAll() {
    for (const Record& record : std::vector(mounted)) {
      _unmount(record.texts);
    }
  }

  std::vector<Texts> waiting;
  std::vector<Record> mounted;
  /// The shortcuts by their paths in the desktop folder, with their URLs.
  std::map<std::string, std::string> desktop;
  /// What was logged, without the reasons why a file cannot be removed.
  std::vector<LogLine> lines;

 private:
  void _unmount(const Texts& texts) {
    const Label& label = labelOf(texts.label);
    if (_removesByScript) {
      if (label.removedByScript) {
        desktop.erase(*label.removedByScript);
      }
      desktop.erase(label.text + ".app");
    } else if (desktop.erase(label.text + ".app") == 0) {
      lines.push_back(error("Error when deleting alias file. Reason: "));
    }
    std::erase_if(mounted, [&](const Record& record) { return record.texts.uuid == texts.uuid; });
  }

  bool _removesByScript;
  bool _shortcutsAreApplications;
};

}  // namespace ravelin::test
