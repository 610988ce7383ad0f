#pragma once

#include <memory>
#include <optional>

#include "foundation/VNExport.h"
#include "foundation/VNFileURL.h"
#include "foundation/VNValue.h"

// Key of the signing information whose presence marks code that belongs to
// the platform itself.
VN_EXTERN_C VN_EXPORT const char* const VNCodeSigningPlatformIdentifierKey;

// The code-signing service. Linux has none, so the default is a stand-in
// (docs/code-signing.md): a bundle's signing information is its signature
// record, the first of the property lists "Contents/Signature.plist" and
// "Signature.plist" (at the bundle's top) that exists, and only a record owned by root
// and writable by no one else may name a platform identifier. A bundle
// without a record is unsigned: it has no signing information and so never
// counts as platform code. Statuses are 0 for success, else the errno of the
// step that failed.
class VN_EXPORT VNCodeSigning {
 public:
  // An item taken for examination.
  class StaticCode {
   public:
    virtual ~StaticCode() = default;
  };

  virtual ~VNCodeSigning() = default;

  // Null with `*status` set when the item at `url` cannot be taken.
  virtual std::unique_ptr<StaticCode> createStaticCode(const VNFileURL& url, int* status) = 0;
  // 0 with `*information` set to the signing information, or left empty
  // for unsigned code; otherwise the status of the failure.
  virtual int copySigningInformation(const StaticCode& code, std::optional<VNValue>* information) = 0;

  static std::shared_ptr<VNCodeSigning> makeDefault();
};
