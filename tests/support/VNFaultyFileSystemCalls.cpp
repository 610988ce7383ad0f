#include "support/VNFaultyFileSystemCalls.h"

void VNFaultyFileSystemCalls::failNth(Call call, int nth, int code, bool sticky) {
  Slot& s = slot(call);
  s.code = code;
  s.sticky = sticky;
  s.nth = nth;
}

int VNFaultyFileSystemCalls::injected(Call call) {
  Slot& s = slot(call);
  int number = ++s.calls;
  int nth = s.nth.load();
  if (nth == 0 || number < nth || (number > nth && !s.sticky)) return 0;
  return -s.code.load();
}

int VNFaultyFileSystemCalls::cloneFile(int destinationFd, int sourceFd) {
  if (int fault = injected(Call::Clone)) return fault;
  return real_->cloneFile(destinationFd, sourceFd);
}

ssize_t VNFaultyFileSystemCalls::copyFileRange(int sourceFd, off_t* sourceOffset, int destinationFd,
                                               off_t* destinationOffset, size_t length) {
  if (int fault = injected(Call::CopyRange)) return fault;
  return real_->copyFileRange(sourceFd, sourceOffset, destinationFd, destinationOffset, length);
}

ssize_t VNFaultyFileSystemCalls::readAt(int fd, void* buffer, size_t length, off_t offset) {
  if (int fault = injected(Call::Read)) return fault;
  return real_->readAt(fd, buffer, length, offset);
}

ssize_t VNFaultyFileSystemCalls::writeAt(int fd, const void* buffer, size_t length, off_t offset) {
  if (int fault = injected(Call::Write)) return fault;
  return real_->writeAt(fd, buffer, length, offset);
}

int VNFaultyFileSystemCalls::setXattr(VNAtPath item, const char* name, const void* value, size_t size) {
  if (int fault = injected(Call::SetXattr)) return fault;
  return real_->setXattr(item, name, value, size);
}
