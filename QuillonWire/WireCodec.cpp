#include "QuillonWire/WireCodec.hpp"

#include "QuillonWire/JSONNesting.hpp"

#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>

#include "QuillonWire/Base64.hpp"
#include "QuillonWire/Codec.hpp"
#include "QuillonWire/GatewayEvent.hpp"
#include "QuillonWire/GatewayRequest.hpp"
#include "QuillonWire/GatewayResponse.hpp"
#include "QuillonWire/WireJSON.hpp"

namespace quillon::wire {
namespace codec {

bool Context::fail(std::string message) {
  std::string path;
  for (const Segment& segment : path_) {
    if (segment.entry) {
      path += "[\"";
      path += segment.key;
      path += "\"]";
    } else if (segment.key.empty()) {
      path += "[" + std::to_string(segment.index) + "]";
    } else {
      if (!path.empty()) path += '.';
      path += segment.key;
    }
  }
  error_ = WireError{std::move(path), std::move(message)};
  return false;
}

std::string describe(const json& value) {
  switch (value.type()) {
    case json::value_t::null: return "null";
    case json::value_t::boolean: return value.get<bool>() ? "true" : "false";
    case json::value_t::number_integer:
    case json::value_t::number_unsigned: return "integer " + value.dump();
    case json::value_t::number_float: return "number " + value.dump();
    case json::value_t::string: return "a string";
    case json::value_t::array: return "an array";
    case json::value_t::object: return "an object";
    case json::value_t::binary:
    case json::value_t::discarded: break;
  }
  return "a value of another kind";
}

bool expected(Context& context, std::string_view what, const json& found) {
  return context.fail("expected " + std::string(what) + ", got " + describe(found));
}

namespace {
constexpr std::string_view kNonFinite = "cannot encode a non-finite number (JSON has no NaN or infinity)";
constexpr std::string_view kFilterValueShape =
    "a filter value must be a scalar \xE2\x80\x94 string, number, or bool (no nesting or arrays)";
}  // namespace

bool encode(const std::string& value, json& out, Context&) {
  out = value;
  return true;
}

bool encode(std::int64_t value, json& out, Context&) {
  out = value;
  return true;
}

bool encode(double value, json& out, Context& context) {
  if (!std::isfinite(value)) return context.fail(std::string(kNonFinite));
  out = value;
  return true;
}

bool encode(bool value, json& out, Context&) {
  out = value;
  return true;
}

bool encode(const Bytes& value, json& out, Context&) {
  out = base64Encode(value);
  return true;
}

bool encode(const FilterValue& value, json& out, Context& context) {
  if (const bool* flag = value.asBool()) return encode(*flag, out, context);
  if (const double* number = value.asNumber()) return encode(*number, out, context);
  if (const std::string* text = value.asString()) return encode(*text, out, context);
  return context.fail("filter value holds nothing");
}

bool decode(const json& in, std::string& out, Context& context) {
  const std::string* text = in.get_ptr<const std::string*>();
  if (text == nullptr) return expected(context, "a string", in);
  out = *text;
  return true;
}

bool decode(const json& in, std::int64_t& out, Context& context) {
  if (in.is_number_unsigned()) {
    const auto value = in.get<std::uint64_t>();
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      return context.fail("integer " + in.dump() + " is out of range");
    out = static_cast<std::int64_t>(value);
    return true;
  }
  if (!in.is_number_integer()) return expected(context, "an integer", in);
  out = in.get<std::int64_t>();
  return true;
}

bool decode(const json& in, double& out, Context& context) {
  if (!in.is_number()) return expected(context, "a number", in);
  out = in.get<double>();
  // Only a hand-built value can hold one; parsed text never does.
  if (!std::isfinite(out)) return context.fail("expected a finite number");
  return true;
}

bool decode(const json& in, bool& out, Context& context) {
  if (!in.is_boolean()) return expected(context, "true or false", in);
  out = in.get<bool>();
  return true;
}

bool decode(const json& in, Bytes& out, Context& context) {
  const std::string* text = in.get_ptr<const std::string*>();
  if (text == nullptr) return expected(context, "base64 text", in);
  auto bytes = base64Decode(*text);
  if (!bytes) return context.fail("not valid base64");
  out = std::move(*bytes);
  return true;
}

// A boolean first, then a number, then a string: the order keeps true from reading as 1.
bool decode(const json& in, FilterValue& out, Context& context) {
  if (in.is_boolean()) {
    out = FilterValue::boolean(in.get<bool>());
  } else if (in.is_number()) {
    double number = 0;
    if (!decode(in, number, context)) return false;
    out = FilterValue::number(number);
  } else if (in.is_string()) {
    out = FilterValue::string(in.get<std::string>());
  } else {
    return context.fail(std::string(kFilterValueShape));
  }
  return true;
}

}  // namespace codec

namespace {

using codec::json;

// nlohmann's messages start with "[json.exception.parse_error.101] "; the rest is the useful part.
std::string withoutExceptionTag(const char* what) {
  const std::string_view text(what);
  const auto end = text.find("] ");
  return std::string(text.starts_with("[json.exception.") && end != std::string_view::npos ? text.substr(end + 2) : text);
}

WireResult<json> parse(std::string_view text) {
  if (nestsDeeperThan(text, kMaxNesting))
    return WireError{"", "not accepted: nested deeper than " + std::to_string(kMaxNesting) + " levels"};
  if (holdsNulByte(text)) return WireError{"", "not valid JSON: a raw NUL byte"};
  try {
    return json::parse(text.begin(), text.end());
  } catch (const json::exception& e) {
    return WireError{"", "not valid JSON: " + withoutExceptionTag(e.what())};
  }
}

template <class T>
WireResult<json> toJSONValue(const T& value) {
  try {
    codec::Context context;
    json out;
    if (!codec::encode(value, out, context)) return context.error();
    return out;
  } catch (const std::exception& e) {
    return WireError{"", std::string("cannot encode: ") + e.what()};
  }
}

template <class T>
Decoded<T> fromJSONValue(const json& in) {
  try {
    codec::Context context;
    T value;
    if (!codec::decode(in, value, context)) return context.error();
    return value;
  } catch (const std::exception& e) {
    return WireError{"", std::string("cannot decode: ") + e.what()};
  }
}

template <class T>
Encoded encodeText(const T& value) {
  auto tree = toJSONValue(value);
  if (!tree) return tree.error();
  try {
    // Replacing bad UTF-8 rather than failing: a damaged title should not cost the whole answer.
    return tree.value().dump(-1, ' ', false, json::error_handler_t::replace);
  } catch (const std::exception& e) {
    return WireError{"", std::string("cannot encode: ") + e.what()};
  }
}

template <class T>
Decoded<T> decodeText(std::string_view text) {
  auto tree = parse(text);
  if (!tree) return tree.error();
  return fromJSONValue<T>(tree.value());
}

}  // namespace

Encoded encode(const GatewayRequest& request) { return encodeText(request); }
Encoded encode(const GatewayResponse& response) { return encodeText(response); }
Encoded encode(const GatewayEvent& event) { return encodeText(event); }

Decoded<GatewayRequest> decodeRequest(std::string_view json) { return decodeText<GatewayRequest>(json); }
Decoded<GatewayResponse> decodeResponse(std::string_view json) { return decodeText<GatewayResponse>(json); }
Decoded<GatewayEvent> decodeEvent(std::string_view json) { return decodeText<GatewayEvent>(json); }

WireResult<nlohmann::json> toJSON(const GatewayRequest& request) { return toJSONValue(request); }
WireResult<nlohmann::json> toJSON(const GatewayResponse& response) { return toJSONValue(response); }
WireResult<nlohmann::json> toJSON(const GatewayEvent& event) { return toJSONValue(event); }

Decoded<GatewayResponse> responseFromJSON(const nlohmann::json& json) { return fromJSONValue<GatewayResponse>(json); }

}  // namespace quillon::wire
