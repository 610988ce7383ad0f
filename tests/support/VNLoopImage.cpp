#include "support/VNLoopImage.h"

#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

int VNRunCommand(const std::string& command, std::string* output) {
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return -1;
  std::array<char, 4096> buffer{};
  std::string text;
  size_t n;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) text.append(buffer.data(), n);
  int status = ::pclose(pipe);
  if (output) *output = text;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

VNBindMount::VNBindMount(const std::string& source, const std::string& target) : target_(target) {
  if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) target_.clear();
}

VNBindMount::~VNBindMount() {
  if (ok()) ::umount2(target_.c_str(), MNT_DETACH);
}

bool VNFileSystemTestsRequired() {
  const char* value = std::getenv("VARNEL_REQUIRE_FS_TESTS");
  return value && std::string(value) == "1";
}

const char* VNLoopImage::name(Kind kind) {
  switch (kind) {
    case Kind::Ext4: return "ext4";
    case Kind::XFS: return "XFS (reflink)";
    case Kind::Btrfs: return "btrfs";
  }
  return "?";
}

std::unique_ptr<VNLoopImage> VNLoopImage::create(Kind kind, std::uint64_t bytes, std::string* whyNot,
                                                 const std::string& mkfsOptions) {
  auto say = [&](std::string why) {
    if (whyNot) *whyNot = std::move(why);
    return nullptr;
  };
  if (::geteuid() != 0) return say("not running as root");
  if (::access("/dev/loop-control", F_OK) != 0) return say("no /dev/loop-control");
  char folder[] = "/tmp/varnel-image.XXXXXX";
  if (!::mkdtemp(folder)) return say("cannot create a temporary folder");
  std::unique_ptr<VNLoopImage> image(new VNLoopImage(kind, folder));
  std::string file = image->folder_ + "/image";
  std::string mount = image->folder_ + "/mnt";
  std::filesystem::create_directory(mount);
  std::string mkfs;
  switch (kind) {
    case Kind::Ext4: mkfs = "mkfs.ext4 -q -F"; break;
    case Kind::XFS: mkfs = "mkfs.xfs -q -f -m reflink=1"; break;
    case Kind::Btrfs: mkfs = "mkfs.btrfs -q -f"; break;
  }
  std::string output;
  if (VNRunCommand("truncate -s " + std::to_string(bytes) + " " + file, &output) != 0)
    return say("truncate failed: " + output);
  if (VNRunCommand(mkfs + " " + mkfsOptions + " " + file, &output) != 0)
    return say(mkfs + " failed: " + output);
  if (VNRunCommand("mount -o loop " + file + " " + mount, &output) != 0)
    return say("mount failed: " + output);
  image->mountPoint_ = mount;
  return image;
}

VNLoopImage::~VNLoopImage() {
  if (!mountPoint_.empty()) {
    // Lazy unmount so that a descriptor a failed test left open cannot keep
    // the loop device busy; the loop device detaches itself (autoclear).
    if (::umount2(mountPoint_.c_str(), 0) != 0) ::umount2(mountPoint_.c_str(), MNT_DETACH);
  }
  std::error_code ec;
  std::filesystem::remove_all(folder_, ec);
}
