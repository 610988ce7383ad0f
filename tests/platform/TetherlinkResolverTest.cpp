// The tetherlink definitions parser and the Linux resolver: definitions as
// written, and bind mounts between two loop-mounted volumes as the live state.
#include "platform/VNTetherlinkResolver.h"
#include "platform/internal/VNTetherlinkDefinitions.h"
#include "support/VNTest.h"

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
  VNWriteTestFile(root + "/" + kTetherlinkDefinitionsFile, text);
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

  ::unlink((dir / kTetherlinkDefinitionsFile).c_str());
  VNMakeFolders(dir / kTetherlinkDefinitionsFile);
  EXPECT_TRUE(resolve(dir.path(), 0x4).empty());
  EXPECT_EQ(VNTetherlinkDefinitionProblems(dir.path()).size(), 1u);
}

TEST(TetherlinkResolverTest, LiveStateFollowsBindMountsBetweenTwoVolumes) {
  VN_MOUNT_OR_SKIP(system, VNLoopImage::Kind::Ext4, 32 << 20);
  VN_MOUNT_OR_SKIP(data, VNLoopImage::Kind::Ext4, 32 << 20);
  for (const char* folder : {"Users", "Library/Caches", "Library/Other"}) VNMakeFolders(*system / folder), VNMakeFolders(*data / folder);
  writeDefinitions(system->mountPoint(), "partner " + data->mountPoint() + "\n/Users\tUsers\n");
  {
    VNBindMount users(*data / "Users", *system / "Users");
    VNBindMount back(*system / "Library/Caches", *data / "Library/Other");
    VNBindMount unrelated("/tmp", *system / "Library/Caches");
    ASSERT_TRUE(users.ok() && back.ok() && unrelated.ok()) << "mount --bind failed";
    EXPECT_EQ(resolve(system->mountPoint(), 0x5),
              (Mappings{{*system / "Users", *data / "Users"}, {*data / "Library/Other", *system / "Library/Caches"}}));
    EXPECT_EQ(resolve(system->mountPoint(), 0x4), (Mappings{{"/Users", "Users"}}));
  }
  EXPECT_TRUE(resolve(system->mountPoint(), 0x5).empty());
}

}  // namespace
