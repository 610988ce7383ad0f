// The tetherlink definitions parser and the Linux resolver: definitions as
// written, and bind mounts between two loop-mounted volumes as the live state.
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/mount.h>

#include <filesystem>

#include "platform/VNTetherlinkResolver.h"
#include "platform/internal/VNTetherlinkDefinitions.h"
#include "support/VNLoopImage.h"
#include "support/VNTestDir.h"

namespace {

using Mappings = std::vector<std::pair<std::string, std::string>>;

Mappings resolve(const std::string& root, std::uint32_t groupOptions) {
  auto resolver = VNTetherlinkResolver::makeDefault();
  auto group = resolver->createGroup(groupOptions);
  resolver->addVolume(*group, resolver->openVolume(root.c_str(), VNTetherlinkResolver::kKindDefinitions, 0));
  resolver->addVolume(*group, resolver->openVolume(root.c_str(), VNTetherlinkResolver::kKindMounted, 0));
  Mappings out;
  resolver->iterateMappings(*group, VNTetherlinkResolver::kFilterEachOnce, [&](const char* s, const char* d) {
    out.emplace_back(s, d);
    return 0;
  });
  return out;
}

void writeDefinitions(const std::string& root, const std::string& text) {
  std::string path = root + "/" + kTetherlinkDefinitionsFile;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  VNWriteTestFile(path, text);
}

TEST(TetherlinkDefinitionsTest, SkipsEachMalformedLineNamingFileAndLine) {
  const std::string tooLong = "/" + std::string(PATH_MAX, 'a');
  const std::pair<std::string, const char*> bad[] = {
      {"no tab here", "expected SOURCE<TAB>DEST"},
      {"/a\tb\tc", "expected SOURCE<TAB>DEST"},
      {"a\tb", "source must begin with \"/\""},
      {"/a\t/b", "destination must not begin with \"/\""},
      {"/../etc\tetc", "leaves its volume"},
      {"/a\tx/../../etc", "leaves its volume"},
      {"/\tUsers", "names the volume's root"},
      {"/a\t", "empty path"},
      {tooLong + "\tb", "longer than PATH_MAX"},
      {std::string("/a\0b\tc", 6), "NUL byte"},
      {"partner ", "names no volume"},
      {"partner ../other", "second partner line"},
  };
  std::string text = "# definitions\npartner ../data\n\n   # indented comment\n/Users\tUsers\n";
  for (const auto& [line, reason] : bad) text += line + "\n";
  text += "/caf\xc3\xa9 x\tLibrary/b\xff";  // no final newline; bytes kept as they are
  VNTetherlinkDefinitions parsed = VNParseTetherlinkDefinitions(text, "T");
  EXPECT_EQ(parsed.partner, "../data");
  EXPECT_EQ(parsed.links, (std::vector<VNTetherlinkDefinition>{{"/Users", "Users"}, {"/caf\xc3\xa9 x", "Library/b\xff"}}));
  ASSERT_EQ(parsed.problems.size(), std::size(bad));
  for (size_t i = 0; i < std::size(bad); ++i) {
    EXPECT_TRUE(parsed.problems[i].starts_with("T:" + std::to_string(i + 6) + ": ")) << parsed.problems[i];
    EXPECT_NE(parsed.problems[i].find(bad[i].second), std::string::npos) << parsed.problems[i];
  }
}

TEST(TetherlinkResolverTest, ReportsDefinitionsAsWrittenAndNothingForAVolumeWithout) {
  VNTestDir dir;
  EXPECT_TRUE(resolve(dir.path(), 0x4).empty());
  EXPECT_TRUE(resolve(dir / "missing", 0x5).empty());
  writeDefinitions(dir.path(), "partner /nowhere\n/Users\tUsers\nbad line\n/Library/Caches\tLibrary/Caches\n");
  EXPECT_EQ(resolve(dir.path(), 0x4), (Mappings{{"/Users", "Users"}, {"/Library/Caches", "Library/Caches"}}));
  EXPECT_TRUE(resolve(dir.path(), 0x5).empty());  // the partner is not mounted
  EXPECT_TRUE(resolve(dir.path(), 0x0).empty());
  EXPECT_EQ(VNTetherlinkDefinitionProblems(dir.path()).size(), 1u);

  // The same volume twice: filter 1 reports each mapping once; a callback
  // that returns non-zero ends the iteration.
  auto resolver = VNTetherlinkResolver::makeDefault();
  auto group = resolver->createGroup(0x4);
  for (int i = 0; i < 2; ++i)
    resolver->addVolume(*group, resolver->openVolume(dir.path().c_str(), VNTetherlinkResolver::kKindDefinitions, 0));
  for (auto [filter, stopAt, expected] : {std::tuple{0, 0, 4}, {1, 0, 2}, {0, 3, 3}}) {
    int seen = 0;
    resolver->iterateMappings(*group, filter, [&, stop = stopAt](const char*, const char*) { return ++seen == stop; });
    EXPECT_EQ(seen, expected) << "filter " << filter << ", stop at " << stopAt;
  }

  std::filesystem::remove(dir / kTetherlinkDefinitionsFile);
  std::filesystem::create_directory(dir / kTetherlinkDefinitionsFile);
  EXPECT_TRUE(resolve(dir.path(), 0x4).empty());
  EXPECT_EQ(VNTetherlinkDefinitionProblems(dir.path()).size(), 1u);
}

// Unmounts on scope exit whatever was bind-mounted.
struct BindMount {
  std::string target;
  BindMount(const std::string& source, std::string at) : target(std::move(at)) {
    if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) target.clear();
  }
  ~BindMount() {
    if (!target.empty()) ::umount2(target.c_str(), MNT_DETACH);
  }
};

TEST(TetherlinkResolverTest, LiveStateFollowsBindMountsBetweenTwoVolumes) {
  VN_MOUNT_OR_SKIP(system, VNLoopImage::Kind::Ext4, 32 << 20);
  VN_MOUNT_OR_SKIP(data, VNLoopImage::Kind::Ext4, 32 << 20);
  for (const char* folder : {"Users", "Library", "Library/Caches", "Library/Other"})
    std::filesystem::create_directories(*system / folder), std::filesystem::create_directories(*data / folder);
  writeDefinitions(system->mountPoint(), "partner " + data->mountPoint() + "\n/Users\tUsers\n");
  {
    BindMount users(*data / "Users", *system / "Users");
    BindMount back(*system / "Library/Caches", *data / "Library/Other");
    BindMount unrelated("/tmp", *system / "Library/Caches");
    ASSERT_FALSE(users.target.empty() || back.target.empty() || unrelated.target.empty()) << "mount --bind failed";
    EXPECT_EQ(resolve(system->mountPoint(), 0x5),
              (Mappings{{*system / "Users", *data / "Users"}, {*data / "Library/Other", *system / "Library/Caches"}}));
    EXPECT_EQ(resolve(system->mountPoint(), 0x4), (Mappings{{"/Users", "Users"}}));
  }
  EXPECT_TRUE(resolve(system->mountPoint(), 0x5).empty());
}

}  // namespace
