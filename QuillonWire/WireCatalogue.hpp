// The notation of the wire catalogue.
//
// Every request case, answer case and record that travels between a client and the gateway is
// written once, as one line giving its wire name and its fields; one generic encoder and one
// generic decoder (private to this module, see Codec.hpp) serve them all. Adding a case or a field
// is adding one line here or in a family header; nothing else changes.
//
//   QUILLON_RECORD(SessionLink, (String, id), (Opt<String>, name));
//       struct SessionLink { String id; Opt<String> name; }, written {"id":…,"name":…}.
//   (Vec<Card>, cards, _0)
//       a field whose C++ name is `cards` and whose wire key is "_0": the unlabelled positions
//       of a case are keyed by their position.
//   CASE(Failure, "failure", (String, message))
//       one line of a family's case list (see ReadRequest.hpp): the case struct and its key.
//   QUILLON_ENUM(RuleTier, usageOnly, never);
//       a payload-less enumeration, written as the bare case name ("usageOnly").
//
// Field types come from the vocabulary below. The preprocessor splits arguments on commas, so a
// type whose spelling holds a top-level comma needs an alias first (Dict<T> exists for that).
//
// Every generated struct is a plain aggregate with value equality, so it can be built with
// designated initialisers (`read::Recall{.query = "x"}`) and compared after a round trip.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace quillon::wire {

// The scalar vocabulary of the catalogue, named as the protocol names them.
using String = std::string;
using Int = std::int64_t;  // the daemon's Int is 64 bits wide
using Int64 = std::int64_t;
using Double = double;
using Bool = bool;
using Bytes = std::vector<std::uint8_t>;  // written as standard base64 text with padding
template <class T>
using Opt = std::optional<T>;  // left out of the JSON when absent; missing or null reads as absent
template <class T>
using Vec = std::vector<T>;
template <class T>
using Dict = std::map<std::string, T>;

// The wire name of a payload-less enumeration value ("titleOnly").
template <class E>
  requires requires(E e) { wireNames(e); }
constexpr std::string_view wireName(E value) {
  return wireNames(value)[static_cast<std::size_t>(value)];
}

namespace detail {
// Turns the case list `void, A, B, …` into std::variant<A, B, …>; the leading void lets a case
// list macro put a comma before every case.
template <class First, class... Cases>
struct CaseList;
template <class... Cases>
struct CaseList<void, Cases...> {
  using Variant = std::variant<Cases...>;
};
}  // namespace detail

}  // namespace quillon::wire

// Members and field description of a record or case. Ends without a semicolon so that the one
// written after the macro closes it.
#define QUILLON_FIELDS(Self, ...)                                                                 \
  QW_FOR_EACH(QW_DECLARE_MEMBER, __VA_ARGS__)                                                     \
  /* Calls visit(wireKey, member) for every field, in declaration order. */                       \
  template <class SelfType, class Visitor>                                                        \
  static void visitFields([[maybe_unused]] SelfType& self, [[maybe_unused]] Visitor&& visit) {    \
    QW_FOR_EACH(QW_VISIT_MEMBER, __VA_ARGS__)                                                     \
  }                                                                                               \
  bool operator==(const Self&) const = default

// A record: a JSON object keyed by its field names.
#define QUILLON_RECORD(Name, ...) \
  struct Name {                   \
    QUILLON_FIELDS(Name, __VA_ARGS__); \
  }

// One case of a family: its wire name and its payload positions. Used through a case list.
#define QUILLON_CASE(Name, wire, ...)                    \
  struct Name {                                          \
    static constexpr std::string_view wireName = wire;   \
    QUILLON_FIELDS(Name __VA_OPT__(, ) __VA_ARGS__);     \
  };

// A family (an enumeration with payloads): the cases of LIST declared in namespace `ns`, and
// struct Name { std::variant<ns::…> value; } whose JSON is an object with exactly one case key.
// The variant's order is the list's order, which is also the order the decoder tries keys in.
#define QUILLON_FAMILY(Name, ns, LIST)                                                    \
  namespace ns {                                                                          \
  LIST(QUILLON_CASE)                                                                      \
  using Cases = ::quillon::wire::detail::CaseList<void LIST(QW_COMMA_CASE)>::Variant;     \
  }                                                                                       \
  struct Name {                                                                           \
    using Cases = ns::Cases;                                                              \
    static constexpr std::string_view familyName = #Name;                                 \
    Cases value;                                                                          \
    bool operator==(const Name&) const = default;                                         \
  }

// A payload-less enumeration, encoded as the bare case name. Ends in a declaration that the
// semicolon after the macro closes.
#define QUILLON_ENUM(Name, ...)                                                     \
  enum class Name { __VA_ARGS__ };                                                  \
  constexpr auto wireNames(Name) {                                                  \
    return std::to_array<std::string_view>({QW_FOR_EACH(QW_QUOTED, __VA_ARGS__)});  \
  }                                                                                 \
  constexpr std::string_view wireTypeName(Name) { return #Name; }                   \
  static_assert(std::is_enum_v<Name>)

// Implementation of the macros above.
#define QW_DECLARE_MEMBER(field) QW_DECLARE_MEMBER_I field
#define QW_DECLARE_MEMBER_I(Type, name, ...) Type name{};
#define QW_VISIT_MEMBER(field) QW_VISIT_MEMBER_I field
#define QW_VISIT_MEMBER_I(Type, name, ...) visit(QW_KEY(name, __VA_ARGS__), self.name);
// The wire key: the explicit one (`_0`) when given, else the member's own name.
#define QW_KEY(name, ...) QW_STRING(QW_FIRST(__VA_ARGS__ __VA_OPT__(, ) name))
#define QW_FIRST(first, ...) first
#define QW_STRING(x) QW_STRING_I(x)
#define QW_STRING_I(x) #x
#define QW_QUOTED(x) #x,
#define QW_COMMA_CASE(Name, ...) , Name

// QW_FOR_EACH(m, a, b, c) expands to m(a) m(b) m(c), for up to 64 arguments.
#define QW_PARENS ()
#define QW_EXPAND(...) QW_EXPAND3(QW_EXPAND3(QW_EXPAND3(QW_EXPAND3(__VA_ARGS__))))
#define QW_EXPAND3(...) QW_EXPAND2(QW_EXPAND2(QW_EXPAND2(QW_EXPAND2(__VA_ARGS__))))
#define QW_EXPAND2(...) QW_EXPAND1(QW_EXPAND1(QW_EXPAND1(QW_EXPAND1(__VA_ARGS__))))
#define QW_EXPAND1(...) __VA_ARGS__
#define QW_FOR_EACH(macro, ...) __VA_OPT__(QW_EXPAND(QW_FOR_EACH_STEP(macro, __VA_ARGS__)))
#define QW_FOR_EACH_STEP(macro, first, ...) \
  macro(first) __VA_OPT__(QW_FOR_EACH_AGAIN QW_PARENS(macro, __VA_ARGS__))
#define QW_FOR_EACH_AGAIN() QW_FOR_EACH_STEP
