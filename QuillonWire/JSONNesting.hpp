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

// True when the text holds a raw NUL byte. No JSON text can (control characters are escaped in
// strings and are not white space outside them), but the parser takes a NUL for the end of its
// input and would read `{"id":1}` followed by NUL and junk as the object alone; every reader of
// JSON from outside checks this first.
bool holdsNulByte(std::string_view text);

}  // namespace quillon::wire
