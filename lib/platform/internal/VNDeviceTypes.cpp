#include "platform/internal/VNDeviceTypes.h"

#include <cctype>

namespace {

struct DeviceType {
  std::string_view word;
  std::string_view identifier;
  std::string_view description;
};

constexpr DeviceType kTypes[] = {
    {"desktop", "org.varnel.device.desktop", "Desktop computer"},
    {"laptop", "org.varnel.device.laptop", "Laptop computer"},
    {"convertible", "org.varnel.device.convertible", "Convertible computer"},
    {"server", "org.varnel.device.server", "Server"},
    {"tablet", "org.varnel.device.tablet", "Tablet"},
    {"handset", "org.varnel.device.handset", "Handset"},
    {"watch", "org.varnel.device.watch", "Watch"},
    {"embedded", "org.varnel.device.embedded", "Embedded device"},
    {"vm", "org.varnel.device.vm", "Virtual machine"},
    {"container", "org.varnel.device.container", "Container"},
};
constexpr DeviceType kComputer = {"", "org.varnel.device.computer", "Computer"};

// Words a model code may use for a chassis word.
constexpr std::pair<std::string_view, std::string_view> kSynonyms[] = {
    {"notebook", "laptop"}, {"phone", "handset"}, {"virtual", "vm"}};

std::string_view identifierOfWord(std::string_view word) {
  for (const auto& [synonym, chassis] : kSynonyms)
    if (word == synonym) word = chassis;
  for (const DeviceType& type : kTypes)
    if (type.word == word) return type.identifier;
  return {};
}

}  // namespace

std::string VNDeviceTypeOfChassis(const std::optional<std::string>& chassis) {
  const std::string_view identifier = chassis ? identifierOfWord(*chassis) : std::string_view{};
  return std::string(identifier.empty() ? kComputer.identifier : identifier);
}

std::string VNDeviceTypeOfModel(std::string_view model) {
  std::string word;
  for (std::size_t i = 0; i <= model.size(); ++i) {
    const unsigned char c = i < model.size() ? static_cast<unsigned char>(model[i]) : ' ';
    if (std::isalnum(c)) {
      word += static_cast<char>(std::tolower(c));
      continue;
    }
    if (const std::string_view identifier = identifierOfWord(word); !identifier.empty())
      return std::string(identifier);
    word.clear();
  }
  return std::string(kComputer.identifier);
}

std::string VNDeviceTypeDescription(std::string_view type) {
  if (type == kComputer.identifier) return std::string(kComputer.description);
  for (const DeviceType& entry : kTypes)
    if (entry.identifier == type) return std::string(entry.description);
  return {};
}
