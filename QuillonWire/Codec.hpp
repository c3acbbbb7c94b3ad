// Private to QuillonWire: the one generic encoder and decoder behind every catalogue type.
//
// A record is walked through its visitFields; a family through its variant of cases; vectors,
// dictionaries, enumerations and scalars have their own overloads. Decoding is driven by the
// C++ types, never by the shape of the input, so its recursion is as deep as the catalogue's
// nesting whatever the message holds.
//
// The families are compiled in their own translation units (ReadRequest.cpp, GatewayResponse.cpp,
// …) through the non-template overloads declared below, so that each unit instantiates only its
// own share of the catalogue.
#pragma once

#include <nlohmann/json.hpp>

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "QuillonWire/FilterValue.hpp"
#include "QuillonWire/WireCatalogue.hpp"
#include "QuillonWire/WireResult.hpp"

namespace quillon::wire {
struct ReadRequest;
struct ControlRequest;
struct NotesRequest;
struct DiagnosticRequest;
struct GatewayRequest;
struct GatewayResponse;
struct GatewayEvent;
}  // namespace quillon::wire

namespace quillon::wire::codec {

using json = nlohmann::json;

// Where the coder is in the value, and the first failure met. The path is kept as a stack of
// borrowed keys and spelled out only when something fails.
class Context {
 public:
  // Records the failure at the current path; returns false so callers can `return fail(…)`.
  bool fail(std::string message);
  const WireError& error() const { return error_; }

 private:
  friend class Step;
  struct Segment {
    std::string_view key;  // empty for an array index
    std::size_t index = 0;
    bool entry = false;  // a dictionary key, spelled ["key"]
  };
  std::vector<Segment> path_;
  WireError error_;
};

// One step down into the value for as long as it lives.
class Step {
 public:
  Step(Context& context, std::string_view key) : context_(context) { context.path_.push_back({key, 0, false}); }
  Step(Context& context, std::size_t index) : context_(context) { context.path_.push_back({{}, index, false}); }
  static Step entry(Context& context, std::string_view key) { return Step(context, key, true); }
  ~Step() { context_.path_.pop_back(); }
  Step(const Step&) = delete;
  Step& operator=(const Step&) = delete;

 private:
  Step(Context& context, std::string_view key, bool entry) : context_(context) {
    context.path_.push_back({key, 0, entry});
  }
  Context& context_;
};

// What a JSON value is, for messages: "null", "true", "integer 3", "number 2.5", "string", ….
std::string describe(const json& value);
bool expected(Context& context, std::string_view what, const json& found);

// ---- What the templates below dispatch on.

// A record or case: it lists its fields through visitFields.
struct AnyFieldVisitor {
  template <class Field>
  void operator()(const char*, Field&) const {}
};
template <class T>
concept Record = requires(T& value) { T::visitFields(value, AnyFieldVisitor{}); };

template <class T>
concept Family = requires(const T& family) {
  typename T::Cases;
  T::familyName;
  family.value;
};

template <class E>
concept Enumeration = std::is_enum_v<E> && requires(E value) {
  wireNames(value);
  wireTypeName(value);
};

// ---- Declarations first, so that every template sees every overload.

bool encode(const std::string& value, json& out, Context& context);
bool encode(std::int64_t value, json& out, Context& context);
bool encode(double value, json& out, Context& context);
bool encode(bool value, json& out, Context& context);
bool encode(const Bytes& value, json& out, Context& context);
bool encode(const FilterValue& value, json& out, Context& context);
bool encode(const ReadRequest& value, json& out, Context& context);
bool encode(const ControlRequest& value, json& out, Context& context);
bool encode(const NotesRequest& value, json& out, Context& context);
bool encode(const DiagnosticRequest& value, json& out, Context& context);
bool encode(const GatewayRequest& value, json& out, Context& context);
bool encode(const GatewayResponse& value, json& out, Context& context);
bool encode(const GatewayEvent& value, json& out, Context& context);
template <class T>
bool encode(const std::vector<T>& value, json& out, Context& context);
template <class T>
bool encode(const std::map<std::string, T>& value, json& out, Context& context);
template <Enumeration E>
bool encode(E value, json& out, Context& context);
template <Record T>
bool encode(const T& value, json& out, Context& context);
template <Family T>
bool encodeFamily(const T& value, json& out, Context& context);
template <Family T>
bool encode(const T& value, json& out, Context& context) {
  return encodeFamily(value, out, context);
}

bool decode(const json& in, std::string& out, Context& context);
bool decode(const json& in, std::int64_t& out, Context& context);
bool decode(const json& in, double& out, Context& context);
bool decode(const json& in, bool& out, Context& context);
bool decode(const json& in, Bytes& out, Context& context);
bool decode(const json& in, FilterValue& out, Context& context);
bool decode(const json& in, ReadRequest& out, Context& context);
bool decode(const json& in, ControlRequest& out, Context& context);
bool decode(const json& in, NotesRequest& out, Context& context);
bool decode(const json& in, DiagnosticRequest& out, Context& context);
bool decode(const json& in, GatewayRequest& out, Context& context);
bool decode(const json& in, GatewayResponse& out, Context& context);
bool decode(const json& in, GatewayEvent& out, Context& context);
template <class T>
bool decode(const json& in, std::vector<T>& out, Context& context);
template <class T>
bool decode(const json& in, std::map<std::string, T>& out, Context& context);
template <Enumeration E>
bool decode(const json& in, E& out, Context& context);
template <Record T>
bool decode(const json& in, T& out, Context& context);
template <Family T>
bool decodeFamily(const json& in, T& out, Context& context);
template <Family T>
bool decode(const json& in, T& out, Context& context) {
  return decodeFamily(in, out, context);
}

// ---- Encoding.

template <class T>
bool encode(const std::vector<T>& value, json& out, Context& context) {
  out = json::array();
  for (std::size_t i = 0; i < value.size(); ++i) {
    Step step(context, i);
    json element;
    if (!encode(value[i], element, context)) return false;
    out.push_back(std::move(element));
  }
  return true;
}

template <class T>
bool encode(const std::map<std::string, T>& value, json& out, Context& context) {
  out = json::object();
  for (const auto& [key, element] : value) {
    Step step = Step::entry(context, key);
    if (!encode(element, out[key], context)) return false;
  }
  return true;
}

template <Enumeration E>
bool encode(E value, json& out, Context&) {
  out = std::string(wireName(value));
  return true;
}

template <class Field>
bool encodeField(const char* key, const Field& field, json& object, Context& context) {
  Step step(context, key);
  return encode(field, object[key], context);
}

// Absent positions are left out, never written as null.
template <class Field>
bool encodeField(const char* key, const std::optional<Field>& field, json& object, Context& context) {
  if (!field) return true;
  Step step(context, key);
  return encode(*field, object[key], context);
}

template <Record T>
bool encode(const T& value, json& out, Context& context) {
  out = json::object();
  bool ok = true;
  T::visitFields(value, [&](const char* key, const auto& field) {
    if (ok) ok = encodeField(key, field, out, context);
  });
  return ok;
}

template <Family T>
bool encodeFamily(const T& value, json& out, Context& context) {
  return std::visit(
      [&](const auto& chosen) {
        using Case = std::decay_t<decltype(chosen)>;
        Step step(context, Case::wireName);
        json payload;
        if (!encode(chosen, payload, context)) return false;
        out = json::object();
        out.emplace(std::string(Case::wireName), std::move(payload));
        return true;
      },
      value.value);
}

// ---- Decoding.

template <class T>
bool decode(const json& in, std::vector<T>& out, Context& context) {
  if (!in.is_array()) return expected(context, "an array", in);
  out.clear();
  out.reserve(in.size());
  std::size_t index = 0;
  for (const json& element : in) {
    Step step(context, index++);
    if (!decode(element, out.emplace_back(), context)) return false;
  }
  return true;
}

template <class T>
bool decode(const json& in, std::map<std::string, T>& out, Context& context) {
  if (!in.is_object()) return expected(context, "an object", in);
  out.clear();
  for (auto entry = in.begin(); entry != in.end(); ++entry) {
    Step step = Step::entry(context, entry.key());
    if (!decode(entry.value(), out[entry.key()], context)) return false;
  }
  return true;
}

template <Enumeration E>
bool decode(const json& in, E& out, Context& context) {
  const std::string* name = in.get_ptr<const std::string*>();
  if (name == nullptr) return expected(context, "a string naming a " + std::string(wireTypeName(E{})), in);
  const auto names = wireNames(E{});
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == *name) {
      out = static_cast<E>(i);
      return true;
    }
  }
  std::string choices;
  for (const auto candidate : names) choices += (choices.empty() ? "" : ", ") + std::string(candidate);
  return context.fail("\"" + *name + "\" is not a " + std::string(wireTypeName(E{})) + " (one of " + choices + ")");
}

template <class Field>
bool decodeField(const json& object, const char* key, Field& field, Context& context) {
  Step step(context, key);
  const auto found = object.find(key);
  if (found == object.end()) return context.fail("missing required field \"" + std::string(key) + "\"");
  return decode(*found, field, context);
}

// Missing or null: absent.
template <class Field>
bool decodeField(const json& object, const char* key, std::optional<Field>& field, Context& context) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) {
    field.reset();
    return true;
  }
  Step step(context, key);
  return decode(*found, field.emplace(), context);
}

template <Record T>
bool decode(const json& in, T& out, Context& context) {
  if (!in.is_object()) return expected(context, "an object", in);
  bool ok = true;
  T::visitFields(out, [&](const char* key, auto& field) {
    if (ok) ok = decodeField(in, key, field, context);
  });
  return ok;
}

// ReadRequest words its own errors: the daemon reads requests from older and newer bridges.
template <class T>
std::string caseKeyCountError(std::size_t count) {
  if constexpr (std::is_same_v<T, ReadRequest>)
    return "ReadRequest expects exactly one case key, got " + std::to_string(count);
  else
    return "Invalid number of keys found, expected one.";
}

// Tries the case keys in declaration order; the first match decodes the payload.
template <class Cases, std::size_t... I>
bool decodeCase(std::string_view key, const json& payload, Cases& out, Context& context, bool& known,
                std::index_sequence<I...>) {
  bool ok = false;
  const auto tryCase = [&]<std::size_t N>(std::integral_constant<std::size_t, N>) {
    using Case = std::variant_alternative_t<N, Cases>;
    if (key != Case::wireName) return false;
    known = true;
    Step step(context, Case::wireName);
    ok = decode(payload, out.template emplace<N>(), context);
    return true;
  };
  (void)(tryCase(std::integral_constant<std::size_t, I>{}) || ...);
  return ok;
}

template <Family T>
bool decodeFamily(const json& in, T& out, Context& context) {
  if (!in.is_object()) return expected(context, "an object holding one " + std::string(T::familyName) + " case", in);
  if (in.size() != 1) return context.fail(caseKeyCountError<T>(in.size()));
  const auto only = in.begin();
  const std::string& key = only.key();
  bool known = false;
  using Cases = typename T::Cases;
  const bool ok = decodeCase(key, only.value(), out.value, context, known,
                             std::make_index_sequence<std::variant_size_v<Cases>>{});
  if (!known) return context.fail("Unknown " + std::string(T::familyName) + " case: " + key);
  return ok;
}

}  // namespace quillon::wire::codec
