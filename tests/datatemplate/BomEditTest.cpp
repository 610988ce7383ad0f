#include "BomTestSupport.h"
#include "support/VNTest.h"

namespace {

using Paths = std::vector<std::string>;

class BomEdit : public ::testing::Test {
 protected:
  // A created store listing these folders and files (and its root).
  VNBomStorePtr sampleStore() {
    VNBomStorePtr store(bom_new_from_directory(bomPath().c_str(), dir_.path().c_str(), 0));
    EXPECT_TRUE(store);
    for (const char* path : {"a", "a/x", "b", "b/d", "b.c"})
      bom_insert_entry(store.get(), makeEntry(BomEntryTypeDirectory, path, S_IFDIR | 0755).get(), BomInsertKeepExisting);
    for (const char* path : {"a/x/y", "b/1", "b/d/2", "b.c/3", "c"})
      bom_insert_entry(store.get(), makeEntry(BomEntryTypeFile, path, S_IFREG | 0644).get(), BomInsertKeepExisting);
    return store;
  }
  std::string bomPath() const { return dir_ / "out.bom"; }
  VNTestDir dir_;
};

const Paths kAll = {"a", "a/x", "a/x/y", "b", "b/1", "b/d", "b/d/2", "b.c", "b.c/3", "c"};
const Paths kWithoutB = {"a", "a/x", "a/x/y", "b", "b.c", "b.c/3", "c"};

// Replaces the entry by a symbolic link at the same path, as the receipt
// writer does for a folder it laid down as a link.
void replaceByLink(BomStore* store, const BomEntry* entry) {
  bom_remove_entry(store, entry);
  VNBomEntryPtr link = makeEntry(BomEntryTypeSymlink, "./b", S_IFLNK | 0755);
  bom_entry_set_symlink_target(link.get(), "../template/b");
  bom_entry_set_flags(link.get(), BomOptionStat | BomOptionChecksums);
  bom_insert_entry(store, link.get(), BomInsertReplaceExisting);
}

TEST_F(BomEdit, InsertedEntriesWalkInPreOrderFromAnyStart) {
  VNBomStorePtr store = sampleStore();
  EXPECT_EQ(walkPaths(store.get()), kAll);
  EXPECT_EQ(walkPaths(store.get(), "b"), (Paths{"b/1", "b/d", "b/d/2"}));
  EXPECT_EQ(walkPaths(store.get(), "./b/d/"), (Paths{"b/d/2"}));
  EXPECT_EQ(walkPaths(store.get(), "c"), Paths{});
}

// A skip leaves out exactly the descendants of the entry returned last
// (nothing after a file); edits ahead of the walk are seen, edits behind it
// are not, and a replaced folder's old descendants are never returned.
TEST_F(BomEdit, SkipsAndEditsDuringAWalk) {
  using Action = std::function<void(BomStore*, BomEnumerator*, const BomEntry*)>;
  auto skip = [](BomStore*, BomEnumerator* walk, const BomEntry*) { bom_enumerator_skip(walk); };
  const std::tuple<const char*, Action, Paths> cases[] = {
      {"b", skip, kWithoutB},
      {"a/x/y", skip, kAll},
      {"c", skip, kAll},
      {"b", [](BomStore* store, BomEnumerator* walk, const BomEntry* entry) {
         replaceByLink(store, entry);
         bom_enumerator_skip(walk);
       }, kWithoutB},
      {"b", [](BomStore* store, BomEnumerator*, const BomEntry* entry) { replaceByLink(store, entry); }, kWithoutB},
      {"a/x", [](BomStore* store, BomEnumerator*, const BomEntry*) {
         bom_insert_entry(store, makeEntry(BomEntryTypeFile, "a/0", S_IFREG).get(), 0);
         bom_insert_entry(store, makeEntry(BomEntryTypeFile, "b/0", S_IFREG).get(), 0);
         bom_remove_entry(store, makeEntry(BomEntryTypeFile, "b/d", 0).get());
         bom_remove_entry(store, makeEntry(BomEntryTypeFile, "c", 0).get());
       }, Paths{"a", "a/x", "a/x/y", "b", "b/0", "b/1", "b.c", "b.c/3"}},
  };
  for (const auto& [at, action, expected] : cases) {
    VNBomStorePtr store = sampleStore();
    VNBomEntryPtr root(bom_root_entry(store.get()));
    VNBomEnumeratorPtr walk(bom_enumerator_new(store.get(), root.get()));
    Paths paths;
    while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())}) {
      paths.emplace_back(bom_entry_path_name(entry.get()));
      if (paths.back() == at) action(store.get(), walk.get(), entry.get());
    }
    EXPECT_EQ(paths, expected) << at;
  }
}

TEST_F(BomEdit, AReplacementIsCommittedWithItsFields) {
  VNBomStorePtr store = sampleStore();
  replaceByLink(store.get(), VNBomEntryPtr(bom_entry_at_path(store.get(), "b")).get());
  ASSERT_EQ(bom_commit(store.get()), 0);
  VNBomStorePtr reread(bom_open(bomPath().c_str()));
  ASSERT_TRUE(reread);
  EXPECT_EQ(walkPaths(reread.get()), (Paths{"a", "a/x", "a/x/y", "b", "b.c", "b.c/3", "c"}));
  VNBomEntryPtr link(bom_entry_at_path(reread.get(), "b"));
  EXPECT_EQ(bom_entry_type(link.get()), BomEntryTypeSymlink);
  EXPECT_EQ(bom_entry_mode(link.get()), S_IFLNK | 0755);
  EXPECT_EQ(bom_entry_flags(link.get()), BomOptionStat | BomOptionChecksums);
  EXPECT_STREQ(bom_entry_symlink_target(link.get()), "../template/b");
}

// Removal takes the subtree (missing entries: nothing); insertion keeps or
// replaces an existing entry and refuses an unknown type, a ".." component
// or a target too long.
TEST_F(BomEdit, RemoveAndInsert) {
  VNBomStorePtr store = sampleStore();
  VNBomEntryPtr b(bom_entry_at_path(store.get(), "b"));
  bom_remove_entry(store.get(), b.get());
  bom_remove_entry(store.get(), b.get());
  EXPECT_EQ(walkPaths(store.get()), (Paths{"a", "a/x", "a/x/y", "b.c", "b.c/3", "c"}));
  bom_insert_entry(store.get(), makeEntry(BomEntryTypeSymlink, "c", S_IFLNK).get(), BomInsertKeepExisting);
  EXPECT_EQ(typeAt(store.get(), "c"), BomEntryTypeFile);
  bom_insert_entry(store.get(), makeEntry(BomEntryTypeSymlink, "/c", S_IFLNK).get(), BomInsertReplaceExisting);
  EXPECT_EQ(typeAt(store.get(), "c"), BomEntryTypeSymlink);
  bom_insert_entry(store.get(), makeEntry(99, "n", 0).get(), BomInsertReplaceExisting);
  bom_insert_entry(store.get(), makeEntry(BomEntryTypeFile, "../n", 0).get(), BomInsertReplaceExisting);
  VNBomEntryPtr longLink = makeEntry(BomEntryTypeSymlink, "l", S_IFLNK);
  bom_entry_set_symlink_target(longLink.get(), std::string(4097, 't').c_str());
  bom_insert_entry(store.get(), longLink.get(), BomInsertReplaceExisting);
  EXPECT_EQ(walkPaths(store.get()).size(), 6u);
  EXPECT_EQ(typeAt(store.get(), "l"), 0);
  bom_remove_entry(store.get(), VNBomEntryPtr(bom_root_entry(store.get())).get());
  EXPECT_FALSE(VNBomEntryPtr(bom_root_entry(store.get())));
}

// A copy takes its own edits and commits to its own file; a copy of a
// read-only store is writable; an enumerator outlives its store.
TEST_F(BomEdit, CopiesAndEnumeratorsAreIndependent) {
  VNBomStorePtr source = sampleStore();
  VNBomStorePtr copy(bom_new_from_bom((dir_ / "copy.bom").c_str(), source.get()));
  ASSERT_TRUE(copy);
  bom_remove_entry(copy.get(), VNBomEntryPtr(bom_entry_at_path(copy.get(), "a")).get());
  EXPECT_EQ(walkPaths(copy.get()).size(), 7u);
  EXPECT_EQ(walkPaths(source.get()), kAll);
  ASSERT_EQ(bom_commit(copy.get()), 0);
  EXPECT_FALSE(VNExists(bomPath())) << "the source is not written";
  VNBomStorePtr opened(bom_open((dir_ / "copy.bom").c_str()));
  VNBomStorePtr second(bom_new_from_bom((dir_ / "second.bom").c_str(), opened.get()));
  VNBomEntryPtr c(bom_entry_at_path(opened.get(), "c"));
  bom_remove_entry(second.get(), c.get());
  EXPECT_EQ(typeAt(second.get(), "c"), 0);
  EXPECT_EQ(typeAt(opened.get(), "c"), BomEntryTypeFile);
  EXPECT_EQ(bom_new_from_bom(nullptr, opened.get()), nullptr);
  EXPECT_EQ(bom_new_from_bom("x", nullptr), nullptr);

  VNBomEntryPtr root(bom_root_entry(source.get()));
  VNBomEnumeratorPtr walk(bom_enumerator_new(source.get(), root.get()));
  source.reset();
  size_t count = 0;
  while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())}) ++count;
  EXPECT_EQ(count, 10u);
  EXPECT_EQ(bom_enumerator_next(walk.get()), nullptr) << "a finished walk stays finished";
}

TEST(BomEntry, SettersCopyTheirTextAndNullHandlesAreHarmless) {
  VNBomEntryPtr entry(bom_entry_new(BomEntryTypeSymlink));
  EXPECT_EQ(bom_entry_type(entry.get()), BomEntryTypeSymlink);
  EXPECT_STREQ(bom_entry_path_name(entry.get()), "");
  EXPECT_EQ(bom_entry_size(entry.get()), 0u);
  char text[32];
  std::strcpy(text, "./dir/name");
  bom_entry_set_path_name(entry.get(), text);
  std::strcpy(text, "target");
  bom_entry_set_symlink_target(entry.get(), text);
  std::strcpy(text, "changed");
  EXPECT_STREQ(bom_entry_path_name(entry.get()), "./dir/name");
  EXPECT_STREQ(bom_entry_short_name(entry.get()), "name");
  EXPECT_STREQ(bom_entry_symlink_target(entry.get()), "target");
  bom_entry_set_short_name(entry.get(), "other");
  EXPECT_STREQ(bom_entry_short_name(entry.get()), "other");
  bom_free(nullptr);
  bom_entry_free(nullptr);
  bom_enumerator_free(nullptr);
  bom_enumerator_skip(nullptr);
  bom_remove_entry(nullptr, entry.get());
  bom_insert_entry(nullptr, entry.get(), BomInsertReplaceExisting);
  EXPECT_NE(bom_commit(nullptr), 0);
  EXPECT_EQ(bom_root_entry(nullptr), nullptr);
  EXPECT_EQ(bom_entry_at_path(nullptr, "a"), nullptr);
  EXPECT_EQ(bom_enumerator_new(nullptr, entry.get()), nullptr);
  EXPECT_EQ(bom_enumerator_next(nullptr), nullptr);
  EXPECT_EQ(bom_entry_type(nullptr), 0);
}

}  // namespace
