// How deep a JSON text nests, checked before it is parsed. The parser itself is iterative, but a
// value nested 100,000 deep is still a hazard for whatever copies, prints or frees it later
// (those walk it recursively); no real message comes close to the limits used with this.
#pragma once

#include <cstddef>
#include <string_view>

namespace quillon::wire {

// True when arrays and objects nest deeper than `limit` anywhere in the text (brackets inside
// strings do not count). Linear, no allocation; the text need not be valid JSON.
bool nestsDeeperThan(std::string_view text, std::size_t limit);

}  // namespace quillon::wire
