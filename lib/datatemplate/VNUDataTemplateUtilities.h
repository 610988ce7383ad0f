#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "foundation/VNError.h"
#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

class VNUDataTemplateCopier;
class VNUVersion;

// Whether the data template on a data volume belongs to the system on its
// system volume.
enum VNUTemplateSyncState : std::uint64_t {
  VNUTemplateSyncStateInSync = 0,
  VNUTemplateSyncStateOutOfSync = 1,
  VNUTemplateSyncStateNoTemplateReceipt = 2,
  VNUTemplateSyncStateNoSystemVersion = 3,
};

// Populates a data volume from the data template of its system volume in one
// call. Class methods only; nothing is kept between calls.
class VN_EXPORT VNUDataTemplateUtilities {
 public:
  // Receives the number of template items laid down so far.
  using ProgressBlock = std::function<void(std::uint64_t items)>;

  VNUDataTemplateUtilities() = delete;

  // Copies the template of the system rooted at `systemVolumePath` into the
  // temporary folder ".DTemplateInstantiation" on the data volume rooted at
  // `dataVolumePath`, moves its contents onto the data volume's root (merging
  // into folders already there; items the template lacks are never touched),
  // removes the temporary folder and forces the attributes of everything
  // below the template's "Users" folder onto the data volume.
  // `instantiateTetherlinks` is accepted and not consulted.
  //
  // An empty URL for either root fails at once with code 1 and touches
  // nothing. A failure of the copy hands on the copier's own error and
  // leaves the temporary folder for the next run to remove; other failures
  // report codes 6, 7, 8 or 9 of VNUDataTemplateErrorDomain, with a
  // description naming the step and its path, the path (VNFilePathErrorKey)
  // and the error that stopped the step as the underlying error.
  [[nodiscard]] static bool copyDataTemplateWithSystemVolumePath(const VNFileURL& systemVolumePath,
                                                   const VNFileURL& dataVolumePath,
                                                   bool instantiateTetherlinks,
                                                   ProgressBlock progressBlock,
                                                   VNError* error = nullptr);
  [[nodiscard]] static bool copyDataTemplateWithSystemVolumePath(const VNFileURL& systemVolumePath,
                                                   const VNFileURL& dataVolumePath,
                                                   bool instantiateTetherlinks,
                                                   VNError* error = nullptr);
  [[nodiscard]] static bool copyDataTemplateWithSystemVolumePath(const VNFileURL& systemVolumePath,
                                                   const VNFileURL& dataVolumePath,
                                                   VNError* error = nullptr);
  // The same installation through a copier the caller made on the system
  // volume and may have analysed already (to size a progress display): the
  // analysis is not run again, progress goes to the copier's own handler,
  // and afterwards its lastCopyCounts say what was laid down. A copier
  // without a log handler gets one that sends its messages to the library's
  // log, as above.
  [[nodiscard]] static bool copyDataTemplateWithCopier(VNUDataTemplateCopier& copier, const VNFileURL& dataVolumePath,
                                         VNError* error = nullptr);

  // Forces, for each folder of the attribute-forcing list ("Users"), the
  // attributes of the template's items onto the target's. Stops at the first
  // failure.
  [[nodiscard]] static bool _preserveAttributesFromDataTemplate(const VNFileURL& dataTemplate,
                                                  const VNFileURL& dataTarget,
                                                  VNError* error = nullptr);
  // Applies owner, group, permission bits, modification time and file flags
  // of every item below `srcPath` (not `srcPath` itself) to the item of the
  // same relative path below `dstPath`, never following a symbolic link on
  // the destination. Missing destination items are logged and skipped; a
  // source folder that can't be walked succeeds with nothing done.
  // The product version and build in the version file below `mountPoint`;
  // null for an empty URL or a version file that cannot be read as a
  // property-list dictionary. Absent keys leave their fields empty.
  [[nodiscard]] static std::shared_ptr<VNUVersion> systemVersionForMountPoint(const VNFileURL& mountPoint);

  // The tetherlinks joining the volume rooted at `volume` to its partner, as
  // dictionaries with VNUDTTetherlinkSourceKey and
  // VNUDTTetherlinkDestinationKey: with `liveResolution`, the bind mounts
  // that join them now; without, the volume's definitions as written. Never
  // fails (an empty array) and never writes `error`. Paths that are not
  // UTF-8 are kept byte for byte.
  static VNValue::Array parseTetherlinkManifestForVolume(const VNFileURL& volume, bool liveResolution,
                                                         VNError* error = nullptr);
  static VNValue::Array parseTetherlinkManifestForVolume(const VNFileURL& volume, VNError* error = nullptr);

  // Compares the template receipt below `dataRoot` with the version file
  // below `systemRoot`: the version file first (missing, unreadable or
  // empty: NoSystemVersion), then the receipt (NoTemplateReceipt), then
  // product version and build. An empty `systemRoot` means "/", an empty
  // `dataRoot` the system root.
  static VNUTemplateSyncState determineTemplateSyncBetween(const VNFileURL& systemRoot, const VNFileURL& dataRoot);

  [[nodiscard]] static bool _forceAttributesOfSrcPath(const VNFileURL& srcPath, const VNFileURL& dstPath,
                                        VNError* error = nullptr);
};
