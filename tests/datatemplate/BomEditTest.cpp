#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "BomTestSupport.h"
#include "support/VNTestDir.h"

namespace {

using Paths = std::vector<std::string>;

// A created store listing `directories` and `files` (and its root).
class BomEdit : public ::testing::Test {
 protected:
  VNBomStorePtr makeStore(const Paths& directories, const Paths& files) {
    VNBomStorePtr store(bom_new_from_directory(bomPath().c_str(), dir_.path().c_str(), 0));
    EXPECT_TRUE(store);
    for (const auto& path : directories)
      bom_insert_entry(store.get(), makeEntry(BomEntryTypeDirectory, path.c_str(), S_IFDIR | 0755).get(),
                       BomInsertKeepExisting);
    for (const auto& path : files)
      bom_insert_entry(store.get(), makeEntry(BomEntryTypeFile, path.c_str(), S_IFREG | 0644).get(),
                       BomInsertKeepExisting);
    return store;
  }
  VNBomStorePtr sampleStore() {
    return makeStore({"a", "a/x", "b", "b/d", "b.c"}, {"a/x/y", "b/1", "b/d/2", "b.c/3", "c"});
  }
  std::string bomPath() const { return dir_ / "out.bom"; }

  VNTestDir dir_;
};

// Walks from the root, calling `atEach` after each entry with the walk and
// the entry; returns the paths returned.
template <typename Action>
Paths walkWith(BomStore* store, Action atEach) {
  VNBomEntryPtr root(bom_root_entry(store));
  VNBomEnumeratorPtr walk(bom_enumerator_new(store, root.get()));
  Paths paths;
  while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())}) {
    paths.emplace_back(bom_entry_path_name(entry.get()));
    atEach(walk.get(), entry.get());
  }
  return paths;
}

}  // namespace

TEST_F(BomEdit, InsertedEntriesWalkInPreOrder) {
  VNBomStorePtr store = sampleStore();
  EXPECT_EQ(walkPaths(store.get()),
            (Paths{"a", "a/x", "a/x/y", "b", "b/1", "b/d", "b/d/2", "b.c", "b.c/3", "c"}));
  EXPECT_EQ(walkPaths(store.get(), "b"), (Paths{"b/1", "b/d", "b/d/2"}));
  EXPECT_EQ(walkPaths(store.get(), "./b/d/"), (Paths{"b/d/2"}));
  EXPECT_EQ(walkPaths(store.get(), "c"), Paths{});
}

TEST_F(BomEdit, SkipAfterAFileChangesNothing) {
  VNBomStorePtr store = sampleStore();
  Paths paths = walkWith(store.get(), [](BomEnumerator* walk, const BomEntry* entry) {
    if (bom_entry_type(entry) == BomEntryTypeFile) bom_enumerator_skip(walk);
  });
  EXPECT_EQ(paths, walkPaths(store.get()));
}

TEST_F(BomEdit, SkipAfterADirectoryLeavesOutExactlyItsDescendants) {
  VNBomStorePtr store = sampleStore();
  Paths paths = walkWith(store.get(), [](BomEnumerator* walk, const BomEntry* entry) {
    if (std::strcmp(bom_entry_path_name(entry), "b") == 0) bom_enumerator_skip(walk);
  });
  EXPECT_EQ(paths, (Paths{"a", "a/x", "a/x/y", "b", "b.c", "b.c/3", "c"}));

  // A skip refers to the entry returned last, and only once.
  paths = walkWith(store.get(), [](BomEnumerator* walk, const BomEntry* entry) {
    if (std::strcmp(bom_entry_path_name(entry), "a/x/y") == 0) bom_enumerator_skip(walk);
  });
  EXPECT_EQ(paths, walkPaths(store.get()));
}

// What the receipt writer does for a directory it replaced by a symbolic
// link: remove, insert a link at the same path, skip.
TEST_F(BomEdit, ReplacingADirectoryByALinkMidWalkKeepsEveryOtherEntry) {
  VNBomStorePtr store = sampleStore();
  Paths paths = walkWith(store.get(), [&](BomEnumerator* walk, const BomEntry* entry) {
    if (std::strcmp(bom_entry_path_name(entry), "b") != 0) return;
    bom_remove_entry(store.get(), entry);
    VNBomEntryPtr link = makeEntry(BomEntryTypeSymlink, "./b", S_IFLNK | 0755);
    bom_entry_set_symlink_target(link.get(), "../template/b");
    bom_entry_set_flags(link.get(), BomOptionStat | BomOptionChecksums);
    bom_insert_entry(store.get(), link.get(), BomInsertReplaceExisting);
    bom_enumerator_skip(walk);
  });
  EXPECT_EQ(paths, (Paths{"a", "a/x", "a/x/y", "b", "b.c", "b.c/3", "c"}));

  ASSERT_EQ(bom_commit(store.get()), 0);
  VNBomStorePtr reread(bom_open(bomPath().c_str()));
  ASSERT_TRUE(reread);
  EXPECT_EQ(walkPaths(reread.get()), (Paths{"a", "a/x", "a/x/y", "b", "b.c", "b.c/3", "c"}));
  VNBomEntryPtr link(bom_entry_at_path(reread.get(), "b"));
  EXPECT_EQ(bom_entry_type(link.get()), BomEntryTypeSymlink);
  EXPECT_EQ(bom_entry_mode(link.get()), S_IFLNK | 0755);
  EXPECT_STREQ(bom_entry_symlink_target(link.get()), "../template/b");
}

TEST_F(BomEdit, ReplacingWithoutSkipStillReturnsNeitherReplacementNorOldDescendants) {
  VNBomStorePtr store = sampleStore();
  Paths paths = walkWith(store.get(), [&](BomEnumerator*, const BomEntry* entry) {
    if (std::strcmp(bom_entry_path_name(entry), "b") != 0) return;
    bom_remove_entry(store.get(), entry);
    bom_insert_entry(store.get(), makeEntry(BomEntryTypeSymlink, "b", S_IFLNK | 0755).get(),
                     BomInsertReplaceExisting);
  });
  EXPECT_EQ(paths, (Paths{"a", "a/x", "a/x/y", "b", "b.c", "b.c/3", "c"}));
}

TEST_F(BomEdit, EditsAheadOfTheWalkAreSeenAndEditsBehindAreNot) {
  VNBomStorePtr store = sampleStore();
  Paths paths = walkWith(store.get(), [&](BomEnumerator*, const BomEntry* entry) {
    if (std::strcmp(bom_entry_path_name(entry), "a/x") != 0) return;
    bom_insert_entry(store.get(), makeEntry(BomEntryTypeFile, "a/0", S_IFREG).get(), 0);
    bom_insert_entry(store.get(), makeEntry(BomEntryTypeFile, "b/0", S_IFREG).get(), 0);
    bom_remove_entry(store.get(), makeEntry(BomEntryTypeFile, "b/d", 0).get());
    bom_remove_entry(store.get(), makeEntry(BomEntryTypeFile, "c", 0).get());
  });
  EXPECT_EQ(paths, (Paths{"a", "a/x", "a/x/y", "b", "b/0", "b/1", "b.c", "b.c/3"}));
}

TEST_F(BomEdit, RemovingTakesTheSubtreeAndNothingElse) {
  VNBomStorePtr store = sampleStore();
  VNBomEntryPtr b(bom_entry_at_path(store.get(), "b"));
  bom_remove_entry(store.get(), b.get());
  EXPECT_EQ(walkPaths(store.get()), (Paths{"a", "a/x", "a/x/y", "b.c", "b.c/3", "c"}));
  bom_remove_entry(store.get(), b.get());
  EXPECT_EQ(walkPaths(store.get()).size(), 6u) << "removing a missing entry does nothing";
  VNBomEntryPtr root(bom_root_entry(store.get()));
  bom_remove_entry(store.get(), root.get());
  EXPECT_FALSE(VNBomEntryPtr(bom_root_entry(store.get())));
}

TEST_F(BomEdit, InsertKeepsOrReplacesAnExistingEntry) {
  VNBomStorePtr store = sampleStore();
  bom_insert_entry(store.get(), makeEntry(BomEntryTypeSymlink, "c", S_IFLNK).get(),
                   BomInsertKeepExisting);
  EXPECT_EQ(typeAt(store.get(), "c"), BomEntryTypeFile);
  bom_insert_entry(store.get(), makeEntry(BomEntryTypeSymlink, "/c", S_IFLNK).get(),
                   BomInsertReplaceExisting);
  EXPECT_EQ(typeAt(store.get(), "c"), BomEntryTypeSymlink);

  // Refused: an unknown type code, a ".." component, a too long target.
  bom_insert_entry(store.get(), makeEntry(99, "n", 0).get(), BomInsertReplaceExisting);
  bom_insert_entry(store.get(), makeEntry(BomEntryTypeFile, "../n", 0).get(),
                   BomInsertReplaceExisting);
  VNBomEntryPtr longLink = makeEntry(BomEntryTypeSymlink, "l", S_IFLNK);
  bom_entry_set_symlink_target(longLink.get(), std::string(4097, 't').c_str());
  bom_insert_entry(store.get(), longLink.get(), BomInsertReplaceExisting);
  EXPECT_EQ(walkPaths(store.get()).size(), 10u);
  EXPECT_EQ(typeAt(store.get(), "l"), 0);
}

TEST_F(BomEdit, CopyOfAStoreIsIndependent) {
  VNBomStorePtr source = sampleStore();
  VNBomStorePtr copy(bom_new_from_bom((dir_ / "copy.bom").c_str(), source.get()));
  ASSERT_TRUE(copy);
  EXPECT_EQ(walkPaths(copy.get()), walkPaths(source.get()));
  VNBomEntryPtr a(bom_entry_at_path(copy.get(), "a"));
  bom_remove_entry(copy.get(), a.get());
  EXPECT_EQ(walkPaths(copy.get()).size(), 7u);
  EXPECT_EQ(walkPaths(source.get()).size(), 10u);
  ASSERT_EQ(bom_commit(copy.get()), 0);
  EXPECT_EQ(::access(bomPath().c_str(), F_OK), -1) << "the source is not written";

  // A copy of a store opened read-only is writable; the opened one is not.
  VNBomStorePtr opened(bom_open((dir_ / "copy.bom").c_str()));
  ASSERT_TRUE(opened);
  VNBomStorePtr second(bom_new_from_bom((dir_ / "second.bom").c_str(), opened.get()));
  VNBomEntryPtr c(bom_entry_at_path(opened.get(), "c"));
  bom_remove_entry(opened.get(), c.get());
  bom_remove_entry(second.get(), c.get());
  EXPECT_EQ(typeAt(opened.get(), "c"), BomEntryTypeFile);
  EXPECT_EQ(typeAt(second.get(), "c"), 0);
  EXPECT_NE(bom_commit(opened.get()), 0);
  EXPECT_EQ(bom_new_from_bom(nullptr, opened.get()), nullptr);
  EXPECT_EQ(bom_new_from_bom("x", nullptr), nullptr);
}

TEST_F(BomEdit, AnEnumeratorOutlivesItsStore) {
  VNBomStorePtr store = sampleStore();
  VNBomEntryPtr root(bom_root_entry(store.get()));
  VNBomEnumeratorPtr walk(bom_enumerator_new(store.get(), root.get()));
  store.reset();
  size_t count = 0;
  while (VNBomEntryPtr entry{bom_enumerator_next(walk.get())}) ++count;
  EXPECT_EQ(count, 10u);
}

TEST(BomEntry, SettersCopyTheirTextAndNullHandlesAreHarmless) {
  VNBomEntryPtr entry(bom_entry_new(BomEntryTypeSymlink));
  EXPECT_EQ(bom_entry_type(entry.get()), BomEntryTypeSymlink);
  EXPECT_STREQ(bom_entry_path_name(entry.get()), "");
  EXPECT_EQ(bom_entry_size(entry.get()), 0u);
  EXPECT_EQ(bom_entry_mode(entry.get()), 0);
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
  bom_entry_set_mode(entry.get(), 0xA1ED);
  bom_entry_set_flags(entry.get(), BomOptionStat | BomOptionChecksums);
  EXPECT_EQ(bom_entry_mode(entry.get()), 0xA1ED);
  EXPECT_EQ(bom_entry_flags(entry.get()), BomOptionStat | BomOptionChecksums);

  bom_free(nullptr);
  bom_entry_free(nullptr);
  bom_enumerator_free(nullptr);
  EXPECT_NE(bom_commit(nullptr), 0);
  EXPECT_EQ(bom_root_entry(nullptr), nullptr);
  EXPECT_EQ(bom_entry_at_path(nullptr, "a"), nullptr);
  EXPECT_EQ(bom_enumerator_new(nullptr, entry.get()), nullptr);
  EXPECT_EQ(bom_enumerator_next(nullptr), nullptr);
  bom_enumerator_skip(nullptr);
  bom_remove_entry(nullptr, entry.get());
  bom_insert_entry(nullptr, entry.get(), BomInsertReplaceExisting);
  EXPECT_EQ(bom_entry_type(nullptr), 0);
}
