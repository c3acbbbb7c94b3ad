// Feeds arbitrary text to the defang. Whatever comes in, the defanged text must hold no framing
// tag and end in no bracket still open, defanging it again must change nothing, and two defanged
// fields printed side by side, with any of the renderers' separators between them, must not form
// a tag either. The input is repaired into UTF-8 first, as the bridge reads every line it gets.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "QuillonMCPBridge/StdioLoop.hpp"
#include "QuillonMCPBridge/TextCleaning.hpp"

namespace {

using quillon::bridge::defangEnvelope;
using quillon::bridge::forgesFramingTag;

constexpr std::array<std::string_view, 8> kSeparators = {"", "=", " \xC2\xB7 ", "\n", "\n- ", "\n  ", ", ", " ("};

std::string checkedDefang(std::string_view text) {
  std::string once = defangEnvelope(text);
  if (forgesFramingTag(once)) std::abort();
  if (defangEnvelope(once) != once) std::abort();
  return once;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  checkedDefang(quillon::bridge::repairedUTF8(bytes));
  // The first two bytes pick the separator and, in proportion, where the first field ends.
  if (size < 2) return 0;
  const std::string rest = quillon::bridge::repairedUTF8(bytes.substr(2));
  std::size_t cut = rest.size() * data[1] / 255;
  while (cut < rest.size() && (static_cast<unsigned char>(rest[cut]) & 0xC0) == 0x80) ++cut;  // not inside a scalar
  const std::string_view fields(rest);
  const std::string composed = checkedDefang(fields.substr(0, cut)) + std::string(kSeparators[data[0] % kSeparators.size()]) +
                               checkedDefang(fields.substr(cut));
  if (forgesFramingTag(composed)) std::abort();
  return 0;
}
