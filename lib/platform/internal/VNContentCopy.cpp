#include "platform/internal/VNContentCopy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "platform/VNFileSystemCalls.h"
#include "platform/VNPlatformService.h"

namespace {

constexpr size_t kBufferBytes = 1 << 20;

bool isRefusal(int code) {
  return code == EOPNOTSUPP || code == EXDEV || code == EINVAL || code == ENOSYS || code == ENOTTY;
}

class SegmentCopier {
 public:
  SegmentCopier(int source, int destination, VNContentMethod* method)
      : calls_(VNPlatformSlot<VNFileSystemCalls>::get()),
        source_(source),
        destination_(destination),
        method_(method) {}

  VNContentResult copy(off_t offset, off_t length) {
    if (*method_ == VNContentMethod::CopyRange) {
      VNContentResult result = copyRange(&offset, &length);
      if (result.code == 0 || !isRefusal(result.code)) return result;
      *method_ = VNContentMethod::ReadWrite;
    }
    return readWrite(offset, length);
  }

 private:
  // Copies what it can with copy_file_range; on a refusal `*offset` and
  // `*length` describe what is left.
  VNContentResult copyRange(off_t* offset, off_t* length) {
    while (*length > 0) {
      off_t in = *offset, out = *offset;
      ssize_t n = calls_->copyFileRange(source_, &in, destination_, &out, static_cast<size_t>(*length));
      if (n == -EINTR) continue;
      if (n < 0) return {static_cast<int>(-n), "copy data to"};
      if (n == 0) break;  // the source shrank under us
      *offset += n;
      *length -= n;
    }
    return {};
  }

  VNContentResult readWrite(off_t offset, off_t length) {
    if (buffer_.empty()) buffer_.resize(static_cast<size_t>(std::min<off_t>(length, kBufferBytes)));
    while (length > 0) {
      size_t want = static_cast<size_t>(std::min<off_t>(length, static_cast<off_t>(buffer_.size())));
      ssize_t got = calls_->readAt(source_, buffer_.data(), want, offset);
      if (got == -EINTR) continue;
      if (got < 0) return {static_cast<int>(-got), "read", /*onSource=*/true};
      if (got == 0) break;
      for (ssize_t written = 0; written < got;) {
        ssize_t n = calls_->writeAt(destination_, buffer_.data() + written,
                                    static_cast<size_t>(got - written), offset + written);
        if (n == -EINTR) continue;
        if (n < 0) return {static_cast<int>(-n), "write"};
        written += n;
      }
      offset += got;
      length -= got;
    }
    return {};
  }

  std::shared_ptr<VNFileSystemCalls> calls_;
  int source_;
  int destination_;
  VNContentMethod* method_;
  std::vector<char> buffer_;
};

}  // namespace

VNContentResult VNCopyContent(int sourceFd, int destinationFd, off_t size, bool cloneOnly,
                              VNContentMethod* method) {
  if (*method == VNContentMethod::Clone || cloneOnly) {
    int result = VNPlatformSlot<VNFileSystemCalls>::get()->cloneFile(destinationFd, sourceFd);
    if (result == 0) return {};
    if (cloneOnly || !isRefusal(-result)) return {-result, "clone data to"};
    *method = VNContentMethod::CopyRange;
  }
  SegmentCopier copier(sourceFd, destinationFd, method);
  for (off_t offset = 0; offset < size;) {
    off_t data = ::lseek(sourceFd, offset, SEEK_DATA);
    if (data < 0 && errno == ENXIO) break;  // only a hole is left
    off_t hole = data < 0 ? size : ::lseek(sourceFd, data, SEEK_HOLE);
    if (data < 0) data = offset;  // no hole support: all of it is data
    hole = hole < 0 ? size : std::min(hole, size);
    if (data >= hole) break;
    if (VNContentResult result = copier.copy(data, hole - data); result.code) return result;
    offset = hole;
  }
  // A trailing hole exists only as the file's length.
  if (::ftruncate(destinationFd, size) != 0) return {errno, "set length of"};
  return {};
}

VNContentMethod VNContentMethodMemory::methodFor(dev_t source, dev_t destination) {
  std::lock_guard lock(mutex_);
  auto found = methods_.find({source, destination});
  return found == methods_.end() ? VNContentMethod::Clone : found->second;
}

void VNContentMethodMemory::remember(dev_t source, dev_t destination, VNContentMethod method) {
  std::lock_guard lock(mutex_);
  methods_[{source, destination}] = method;
}
