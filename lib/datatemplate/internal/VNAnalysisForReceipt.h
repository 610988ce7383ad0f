#pragma once

#include <memory>
#include <string>
#include <vector>

#include "datatemplate/VNBomStore.h"
#include "datatemplate/VNUDataTemplateCopier.h"

// A template item laid down as a symbolic link, as the receipt BOM lists it.
struct VNUDataTemplateSymlinkedItem {
  std::string path;
  std::string shortName;
  std::string target;
};

// The receipt BOM's entry for a symlinked item.
VNBomEntryPtr VNUDataTemplateSymlinkEntry(const VNUDataTemplateSymlinkedItem& item);

// The analysis walks the template's BOM with the symlink patterns already;
// the receipt BOM is that BOM with the same entries replaced. Kept from the
// analysis, the entries it found spare the receipt a second walk (the BOM
// itself is opened again: the copier keeps nothing open between calls).
// They serve only while the pattern lists are the ones the analysis used.
struct VNUDataTemplateCopier::AnalysisForReceipt {
  std::vector<VNUDataTemplateSymlinkedItem> symlinked;
  std::shared_ptr<const PatternList> filePatterns;
  std::shared_ptr<const PatternList> directoryPatterns;

  bool matches(const VNUDataTemplateCopier& copier) const {
    return filePatterns == copier.symlinkedFilePatterns() &&
           directoryPatterns == copier.symlinkedDirectoryPatterns();
  }
};
