#pragma once
// Text forms of values, both ways.
//
// ValueText<T> gives a type its text form: text(v) renders the value, and
// parse(text, v) reads a value from the start of text and returns how many
// characters it used (throwing RangeException when nothing there is a value).
// The free functions below are what callers use:
//   stringValue(v) / valueToStrep(v)   the text of a value
//   sequenceToValue(text, v)           read from the start, return chars used
//   strepToValue<T>(text)              read the whole text; trailing
//                                      characters are "junk at column %lld
//                                      deserializing %s" (columns from 0)
// Enumerations get their forms from an EnumTexts<E> specialisation.

#include <array>
#include <charconv>
#include <concepts>
#include <iosfwd>
#include <string_view>
#include <type_traits>

#include "Zet/Exception.h"
#include "Zet/Format.h"
#include "Zet/String8.h"

namespace Zet {

template <class T>
struct ValueText;

template <class T>
String8 stringValue(T const& v) {
  return ValueText<T>::text(v);
}
template <class T>
String8 valueToStrep(T const& v) {
  return ValueText<T>::text(v);
}
template <class T>
size_t sequenceToValue(std::string_view text, T& out) {
  return ValueText<T>::parse(text, out);
}

[[noreturn]] void throwJunk(size_t column, std::string_view text);

template <class T>
T strepToValue(std::string_view text) {
  T v{};
  size_t used = sequenceToValue(text, v);
  if (used != text.size()) throwJunk(used, text);
  return v;
}
template <class T>
void strepToValue(std::string_view text, T* out) {
  *out = strepToValue<T>(text);
}

template <>
struct ValueText<String8> {
  static String8 text(String8 const& v) { return v; }
  static size_t parse(std::string_view t, String8& v) {
    v = String8(t);
    return t.size();
  }
};
template <>
struct ValueText<Name> {
  static String8 text(Name const& v) { return v; }
  static size_t parse(std::string_view t, Name& v) {
    v = Name(t);
    return t.size();
  }
};
template <>
struct ValueText<bool> {
  static String8 text(bool v) { return v ? "true" : "false"; }
  static size_t parse(std::string_view t, bool& v);
};
template <std::integral T>
  requires(!std::same_as<T, bool>)
struct ValueText<T> {
  static String8 text(T v) {
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return String8(buf, static_cast<size_t>(r.ptr - buf));
  }
  static size_t parse(std::string_view t, T& v) {
    auto r = std::from_chars(t.data(), t.data() + t.size(), v);
    if (r.ec != std::errc()) throwRangeException(format("no number deserializing %.*s", int(t.size()), t.data()));
    return static_cast<size_t>(r.ptr - t.data());
  }
};
template <>
struct ValueText<double> {
  // Shortest text that reads back as the same double.
  static String8 text(double v);
  static size_t parse(std::string_view t, double& v);
};

// Text forms of an enumeration: specialise with
//   static constexpr std::string_view typeName = "AgentEnvStatus::Status";
//   static constexpr std::array<std::string_view, N> texts = {...};
// where texts[i] is the text of value i. Other numbers print as
// "<typeName>(<number>)".
template <class E>
struct EnumTexts;

template <class E>
concept TextEnum = std::is_enum_v<E> && requires { EnumTexts<E>::texts; };

String8 enumText(std::string_view typeName, std::string_view const* texts, size_t count, long long value);
// Reads the longest value text at the start of t; returns the characters used.
size_t enumParse(std::string_view typeName, std::string_view const* texts, size_t count, std::string_view t,
                 long long& value);

template <TextEnum E>
struct ValueText<E> {
  static String8 text(E v) {
    auto const& t = EnumTexts<E>::texts;
    return enumText(EnumTexts<E>::typeName, t.data(), t.size(), static_cast<long long>(v));
  }
  static size_t parse(std::string_view text, E& v) {
    auto const& t = EnumTexts<E>::texts;
    long long n = 0;
    size_t used = enumParse(EnumTexts<E>::typeName, t.data(), t.size(), text, n);
    v = static_cast<E>(n);
    return used;
  }
};

template <TextEnum E>
std::ostream& operator<<(std::ostream& out, E v) {
  return out << stringValue(v);
}

}  // namespace Zet
