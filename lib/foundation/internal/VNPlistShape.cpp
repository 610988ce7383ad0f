#include "foundation/internal/VNPlistShape.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::span<const std::uint8_t>;

bool isBinary(Bytes bytes) {
  return bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0;
}

// True when `text` holds a NUL byte or a character reference to 0
// ("&#0;", "&#x00;").
bool xmlHasNul(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return true;
  for (size_t at = text.find("&#"); at != std::string_view::npos; at = text.find("&#", at + 2)) {
    size_t i = at + 2;
    if (i < text.size() && (text[i] == 'x' || text[i] == 'X')) ++i;
    size_t digits = i;
    while (i < text.size() && text[i] == '0') ++i;
    if (i > digits && i < text.size() && text[i] == ';') return true;
  }
  return false;
}

// XML: counts open <array> and <dict> elements, skipping comments and
// character data, where tag-like text is not markup.
bool xmlWithin(std::string_view text, int maxDepth) {
  int depth = 0;
  size_t i = 0;
  auto startsAt = [&](size_t at, std::string_view word) { return text.substr(at, word.size()) == word; };
  while ((i = text.find('<', i)) != std::string_view::npos) {
    if (startsAt(i, "<!--") || startsAt(i, "<![CDATA[")) {
      size_t end = text.find(startsAt(i, "<!--") ? "-->" : "]]>", i);
      if (end == std::string_view::npos) return true;
      i = end + 3;
      continue;
    }
    size_t close = text.find('>', i);
    if (close == std::string_view::npos) return true;
    bool closing = startsAt(i + 1, "/");
    size_t name = i + (closing ? 2 : 1);
    bool container = startsAt(name, "array") || startsAt(name, "dict");
    bool selfClosing = text[close - 1] == '/';
    if (container && closing && depth > 0) --depth;
    if (container && !closing && !selfClosing && ++depth > maxDepth) return false;
    i = close + 1;
  }
  return true;
}

// Binary: walks the object graph from the top object through array, set
// and dictionary references, remembering each object's height and expanded
// size so that shared objects are measured once.
class BinaryWalker {
 public:
  explicit BinaryWalker(Bytes bytes) : bytes_(bytes), nodeLimit_(1024 + 8 * bytes.size()) {}

  bool within(int maxDepth) {
    if (bytes_.size() < 8 + 32) return true;
    Bytes trailer = bytes_.subspan(bytes_.size() - 32);
    offsetSize_ = trailer[6];
    refSize_ = trailer[7];
    std::uint64_t count = readInt(trailer.subspan(8, 8));
    std::uint64_t top = readInt(trailer.subspan(16, 8));
    tableAt_ = readInt(trailer.subspan(24, 8));
    if (offsetSize_ == 0 || offsetSize_ > 8 || tableAt_ >= bytes_.size() ||
        count > (bytes_.size() - tableAt_) / offsetSize_)
      return true;
    measured_.assign(count, Measure{});
    if (hasNulString()) return false;
    // References wider than 8 bytes or a top object outside the table leave
    // nothing to follow.
    return refSize_ == 0 || refSize_ > 8 || top >= count || walk(top, maxDepth);
  }

 private:
  enum class State : std::uint8_t { Unknown, OnPath, Done };
  struct Measure {
    State state = State::Unknown;
    int height = 0;            // containers on the longest chain below and including it
    std::uint64_t nodes = 0;   // nodes of the tree it expands to
  };
  struct Frame {
    std::uint64_t object;
    size_t refsAt = 0;
    std::uint64_t refCount = 0;
    std::uint64_t next = 0;
    int height = 1;
    std::uint64_t nodes = 1;
  };

  static std::uint64_t readInt(Bytes b) {
    std::uint64_t v = 0;
    for (auto byte : b) v = v << 8 | byte;
    return v;
  }

  // Where object `index` starts, or npos.
  size_t offsetOf(std::uint64_t index) const {
    size_t at = tableAt_ + index * offsetSize_;
    std::uint64_t offset = readInt(bytes_.subspan(at, offsetSize_));
    return offset < tableAt_ ? offset : std::string_view::npos;
  }

  // Fills `frame` with the object's references; false for a leaf.
  bool containerRefs(Frame& frame) const {
    size_t at = offsetOf(frame.object);
    if (at == std::string_view::npos) return false;
    std::uint8_t marker = bytes_[at];
    std::uint8_t kind = marker >> 4;
    if (kind != 0xA && kind != 0xC && kind != 0xD) return false;
    std::uint64_t count = marker & 0x0F;
    size_t refsAt = at + 1;
    if (count == 0x0F) {
      if (refsAt >= tableAt_ || (bytes_[refsAt] >> 4) != 0x1) return false;
      size_t width = size_t{1} << (bytes_[refsAt] & 0x03);
      if (refsAt + 1 + width > tableAt_) return false;
      count = readInt(bytes_.subspan(refsAt + 1, width));
      refsAt += 1 + width;
    }
    std::uint64_t refsPerEntry = kind == 0xD ? 2 : 1;  // a dictionary lists keys, then values
    if (count > (tableAt_ - refsAt) / refSize_ / refsPerEntry) return false;
    frame.refsAt = refsAt;
    frame.refCount = count * refsPerEntry;
    return true;
  }

  // True when an ASCII (0x5) or UTF-16 (0x6) string object holds a NUL unit.
  bool hasNulString() const {
    for (std::uint64_t index = 0; index < measured_.size(); ++index) {
      size_t at = offsetOf(index);
      if (at == std::string_view::npos) continue;
      std::uint8_t kind = bytes_[at] >> 4;
      if (kind != 0x5 && kind != 0x6) continue;
      std::uint64_t count = bytes_[at] & 0x0F;
      size_t start = at + 1;
      if (count == 0x0F) {
        if (start >= bytes_.size() || (bytes_[start] >> 4) != 0x1) continue;
        size_t width = size_t{1} << (bytes_[start] & 0x03);
        if (start + 1 + width > bytes_.size()) continue;
        count = readInt(bytes_.subspan(start + 1, width));
        start += 1 + width;
      }
      // libplist bounds a string by the end of the file, not by the offset
      // table, so a string may run over the table's zero bytes.
      size_t unit = kind == 0x6 ? 2 : 1;
      count = std::min<std::uint64_t>(count, (bytes_.size() - start) / unit);
      for (std::uint64_t i = 0; i < count; ++i) {
        Bytes code = bytes_.subspan(start + i * unit, unit);
        if (std::all_of(code.begin(), code.end(), [](std::uint8_t b) { return b == 0; })) return true;
      }
    }
    return false;
  }

  // Adds a measured child to the frame of its container; false when the
  // container's chain or tree grows past the limits.
  bool addChild(Frame& frame, const Measure& child, size_t pathLength, int maxDepth) {
    frame.height = std::max(frame.height, child.height + 1);
    frame.nodes = std::min(frame.nodes + child.nodes, nodeLimit_ + 1);
    return static_cast<int>(pathLength) + child.height <= maxDepth && frame.nodes <= nodeLimit_;
  }

  bool walk(std::uint64_t top, int maxDepth) {
    std::vector<Frame> path;
    // Starts measuring `object`: a container goes on the path, a leaf is done.
    auto enter = [&](std::uint64_t object) {
      Frame frame{object};
      if (!containerRefs(frame)) {
        measured_[object] = {State::Done, 0, 1};
        return;
      }
      measured_[object].state = State::OnPath;
      path.push_back(frame);
    };
    enter(top);
    while (!path.empty()) {
      if (static_cast<int>(path.size()) > maxDepth) return false;
      Frame& frame = path.back();
      if (frame.next == frame.refCount) {
        Measure done{State::Done, frame.height, frame.nodes};
        measured_[frame.object] = done;
        path.pop_back();
        if (!path.empty() && !addChild(path.back(), done, path.size(), maxDepth)) return false;
        continue;
      }
      std::uint64_t child = readInt(bytes_.subspan(frame.refsAt + frame.next++ * refSize_, refSize_));
      if (child >= measured_.size()) continue;
      if (measured_[child].state == State::OnPath) return false;
      if (measured_[child].state == State::Unknown) {
        size_t before = path.size();
        enter(child);
        if (path.size() > before) continue;
      }
      if (!addChild(path.back(), measured_[child], path.size(), maxDepth)) return false;
    }
    return measured_[top].nodes <= nodeLimit_;
  }

  Bytes bytes_;
  std::uint64_t nodeLimit_;
  size_t offsetSize_ = 0;
  size_t refSize_ = 0;
  size_t tableAt_ = 0;
  std::vector<Measure> measured_;
};

}  // namespace

bool VNPlistShapeWithinLimits(Bytes bytes, int maxDepth) {
  if (isBinary(bytes)) return BinaryWalker(bytes).within(maxDepth);
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return !xmlHasNul(text) && xmlWithin(text, maxDepth);
}
