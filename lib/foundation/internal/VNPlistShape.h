#pragma once

#include <cstdint>
#include <span>

// How deeply property-list containers may nest. libplist parses and frees
// nested containers recursively, so a hostile file tens of thousands of
// levels deep would exhaust the stack.
inline constexpr int kVNPlistMaxDepth = 512;

// True when `bytes` (an XML or a binary property list, told apart as libplist
// does) is safe to hand to libplist's parser:
// - no chain of arrays and dictionaries is deeper than `maxDepth`;
// - a binary list, whose objects may be referred to from many places and
//   which libplist copies out into a tree, expands to no more than 1024
//   nodes plus 8 per input byte (a few hundred bytes of shared containers
//   would otherwise expand exponentially);
// - a binary list has no cycle of containers;
// - no string or key holds a NUL character (libplist's string accessors
//   assert, aborting the process, on such strings): no NUL byte or character
//   reference to 0 in XML, no NUL unit in a binary list's string objects.
// Malformed parts that affect neither are left for the parser to reject.
bool VNPlistShapeWithinLimits(std::span<const std::uint8_t> bytes,
                              int maxDepth = kVNPlistMaxDepth);
