/* The pairing functions called from C, so that their header stays C and their
   symbols unmangled. */
#include <stdio.h>

#include "systemview/VNVolumePairing.h"

int vnTestPairFromC(const char* root, const char* role, char* mount, size_t size, int* caseSensitive) {
  VNStorageVolume* volume = VNStorageVolumeCreateForPath(root);
  if (!volume) return -1;
  VNStorageVolume* partner = getPairedVolumeWithRole(volume, role);
  const char* at = VNStorageVolumeMountPoint(partner);
  snprintf(mount, size, "%s", at ? at : "");
  *caseSensitive = isCaseSensitive(volume);
  int found = partner != NULL;
  VNStorageVolumeFree(partner);
  VNStorageVolumeFree(volume);
  return found;
}
