#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "support/VNTestDir.h"

// A fake sysfs tree in a test folder: power supplies under
// class/power_supply, each a folder of attribute files.
class VNFakeSysfs {
 public:
  const std::string& root() const { return dir_.path(); }

  // Adds supply `name` with these attribute files (name -> contents; a
  // newline is added as the kernel does).
  void addSupply(const std::string& name, const std::map<std::string, std::string>& attributes) {
    const std::string folder = dir_ / ("class/power_supply/" + name);
    std::filesystem::create_directories(folder);
    for (const auto& [file, value] : attributes) VNWriteTestFile(folder + "/" + file, value + "\n");
  }
  // The power-supply class folder exists, with no supply in it.
  void addEmptyClass() { std::filesystem::create_directories(dir_ / "class/power_supply"); }
  void addMains(bool online) { addSupply("AC", {{"type", "Mains"}, {"online", online ? "1" : "0"}}); }

 private:
  VNTestDir dir_;
};
