// Does to one disk what the lines of standard input say, in one process, and answers each with a
// line: for the system tests of what a process remembers about the volumes that it has mounted.

#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "base/Text.h"
#include "disk/Disk.h"
#include "disk/DiskManager.h"

int main(int count, char** arguments) {
  using namespace ravelin;
  if (count != 3) {
    std::cerr << "usage: ravelin-disk-volume-session SERVER SHARE\n";
    return 2;
  }
  Disk disk;
  disk.setIpAddress(arguments[1]);
  disk.setLabel(arguments[2]);
  DiskManager manager;
  const auto text = [](bool answer) { return std::string(answer ? "true" : "false"); };
  const std::map<std::string, std::function<std::string()>> commands{
      {"mount", [&] { return text(manager.mountDisk(disk)); }},
      {"unmount", [&] { return text(manager.unmountDisk(disk)); }},
      {"exists", [&] { return text(disk.doesVolumeExist()); }},
      {"path", [&] { return textOrNull(disk.getVolumePath()); }},
      {"lookup", [&] { return textOrNull(DiskManager::getMountedDiskMountDirectory(disk)); }},
      {"reference", [&] { return std::to_string(disk.volumeReference()); }},
  };
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << commands.at(line)() << '\n' << std::flush;
  }
  return 0;
}
