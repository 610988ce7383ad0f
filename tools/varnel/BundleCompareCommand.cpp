// varnel bundle compare: which of two copies of a bundle a migration keeps.
#include <sys/stat.h>

#include <cstdio>

#include "Command.h"
#include "bundles/VNBundleInformation.h"
#include "bundles/VNBundleVersionComparison.h"
#include "foundation/VNValue.h"

namespace varnel {
namespace {

struct CompareOptions {
  std::string source;
  std::string destination;
  bool removeLeftovers = false;
  bool json = false;
};

const char* orderName(std::int64_t order) { return order < 0 ? "older" : order > 0 ? "newer" : "same"; }

const char* reasonName(VNBundleComparisonReason reason) {
  switch (reason) {
    case VNBundleComparisonReason::Leftover: return "leftover";
    case VNBundleComparisonReason::StoreRule: return "store";
    case VNBundleComparisonReason::Versions: return "versions";
  }
  return "versions";
}

struct Field {
  const char* name;  // in JSON
  const char* key;   // in the bundle information
};

Field fieldOf(VNComponentVersionField field) {
  namespace Key = VNBundleInformationKey;
  switch (field) {
    case VNComponentVersionField::ShortVersionString: return {"shortVersionString", Key::kShortVersionString};
    case VNComponentVersionField::BundleVersion: return {"bundleVersion", Key::kBundleVersion};
    case VNComponentVersionField::SourceVersion: return {"sourceVersion", Key::kSourceVersion};
    case VNComponentVersionField::BuildVersion: return {"buildVersion", Key::kBuildVersion};
  }
  return {"", ""};
}

std::string versionText(const VNValue& information, const char* key) {
  const std::string* text = information.findString(key);
  return text ? quotedName(*text) : "(none)";
}

// One line: the answer and the rule or string that decided it.
std::string explanation(const VNBundleComparison& decision, const VNValue& source, const VNValue& destination) {
  std::string answer = std::string(orderName(decision.order)) + ": ";
  if (decision.reason == VNBundleComparisonReason::Leftover)
    return answer + "the destination is left over from an interrupted migration";
  if (decision.reason == VNBundleComparisonReason::StoreRule)
    return answer + "the destination was installed from the store and the source was not";
  if (!decision.decidedBy) return answer + "every version string is the same";
  Field field = fieldOf(*decision.decidedBy);
  return answer + field.key + " " + versionText(source, field.key) + " against " + versionText(destination, field.key);
}

bool exists(const std::string& path) {
  struct stat item {};
  return ::lstat(path.c_str(), &item) == 0;
}

int runCompare(const CompareOptions& options) {
  VNFileURL sourceURL = VNFileURL::fileURLWithPath(options.source);
  VNFileURL destinationURL = VNFileURL::fileURLWithPath(options.destination);
  VNValue source = VNUtilities::VN_bundleInformationAtPath(sourceURL);
  VNValue destination = VNUtilities::VN_bundleInformationAtPath(destinationURL);
  VNBundleComparison decision = VNDecideBundleComparison(source, destination, destinationURL);
  bool leftover = decision.reason == VNBundleComparisonReason::Leftover;
  if (leftover && options.removeLeftovers)
    VNUtilities::VN_compareBundleVersionsForSourceBundleInformation(source, destination, sourceURL, destinationURL);
  bool removed = leftover && options.removeLeftovers && !exists(options.destination);
  if (options.json) {
    VNValue result = VNValue::dictionary();
    result.set("order", decision.order);
    result.set("result", orderName(decision.order));
    result.set("reason", reasonName(decision.reason));
    if (decision.decidedBy) result.set("decidedBy", fieldOf(*decision.decidedBy).name);
    if (leftover) result.set("leftoverMarker", VNLeftoverMarkerURL(destinationURL)->path());
    if (leftover) result.set("removed", removed);
    result.set("source", std::move(source));
    result.set("destination", std::move(destination));
    printJSON(result);
  } else {
    std::printf("%s\n", explanation(decision, source, destination).c_str());
    if (leftover && !options.removeLeftovers)
      std::printf("would remove %s (marker %s); run with --remove-leftovers to remove it\n",
                  quotedName(options.destination).c_str(),
                  quotedName(VNLeftoverMarkerURL(destinationURL)->path()).c_str());
    else if (leftover)
      std::printf("%s %s\n", removed ? "removed" : "could not remove", quotedName(options.destination).c_str());
  }
  return leftover && options.removeLeftovers && !removed ? kExitFailed : kExitOK;
}

CommandRegistration registration("bundle compare", [](CLI::App& app, int& status) {
  auto* group = commandGroup(app, "bundle", "Read bundle versions and decide which copy of a bundle to keep");
  auto* command = group->add_subcommand(
      "compare", "Say whether the source copy of a bundle is older, the same or newer than the destination copy");
  auto options = std::make_shared<CompareOptions>();
  command->add_option("SOURCE", options->source, "The source copy")->required();
  command->add_option("DESTINATION", options->destination, "The destination copy")->required();
  command->add_flag("--remove-leftovers", options->removeLeftovers,
                    "Remove a destination left over from an interrupted migration (otherwise only reported)");
  command->add_flag("--json", options->json, "Print the decision and both bundles' information as JSON");
  command->callback([options, &status] { status = runCompare(*options); });
});

}  // namespace
}  // namespace varnel
