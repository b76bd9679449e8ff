#pragma once
// The framework's exceptions.
//
// Every exception carries its text and the set of kinds it belongs to (one
// bit per class on its inheritance path), so a caller can test a kind without
// knowing the concrete class. Expect marks kinds as expected for a scope:
// an exception raised while not expected is traced as an internal fault
// (facility "Exception", level 1) when it is made.

#include <cstdint>
#include <exception>
#include <string_view>

#include "Zet/String8.h"

namespace Zet {

enum ExceptionKind : uint32_t {
  kException = 1u << 0,
  kRangeException = 1u << 1,
  kAgentException = 1u << 2,
  kUnknownTypeException = 1u << 3,
  kNoMapFileEntryException = 1u << 4,
  kLibraryLoadException = 1u << 5,
  kNoTypeNodeException = 1u << 6,
  kDirInstantiationException = 1u << 7,
  kPermissionException = 1u << 8,
  kNameInUseException = 1u << 9,
  kEntityIdUnavailableException = 1u << 10,
  kAttrLogEntityException = 1u << 11,
  kAttrLogRecordException = 1u << 12,
  kListenException = 1u << 13,
};

class Exception : public std::exception {
 public:
  explicit Exception(String8 text) : Exception(std::move(text), kException) {}
  char const* what() const noexcept override { return text_.charPtr(); }
  String8 const& text() const noexcept { return text_; }
  // The kinds this exception belongs to, as ExceptionKind bits.
  uint32_t kinds() const noexcept { return kinds_; }
  bool isKind(ExceptionKind k) const noexcept { return (kinds_ & k) != 0; }
  // Traces it as an internal fault unless its kinds are expected on this
  // thread. Done when it is made; a thread that takes over an exception
  // made on another, under Expect there, does it again.
  void traceIfUnexpected() const;

 protected:
  Exception(String8 text, uint32_t kinds);

 private:
  String8 text_;
  uint32_t kinds_;
};

#define ZET_DECLARE_EXCEPTION(Class, Base)                                           \
  class Class : public Base {                                                       \
   public:                                                                          \
    explicit Class(String8 text) : Base(std::move(text), k##Class) {}               \
                                                                                    \
   protected:                                                                       \
    Class(String8 text, uint32_t kinds) : Base(std::move(text), kinds | k##Class) {} \
  }

// A bad argument: null where a value is required, a number out of range, text
// that does not parse.
ZET_DECLARE_EXCEPTION(RangeException, Exception);
ZET_DECLARE_EXCEPTION(AgentException, Exception);
// A type name the type map cannot resolve; the three kinds below tell why.
ZET_DECLARE_EXCEPTION(UnknownTypeException, Exception);
ZET_DECLARE_EXCEPTION(NoMapFileEntryException, UnknownTypeException);
ZET_DECLARE_EXCEPTION(LibraryLoadException, UnknownTypeException);
ZET_DECLARE_EXCEPTION(NoTypeNodeException, UnknownTypeException);
ZET_DECLARE_EXCEPTION(DirInstantiationException, Exception);
ZET_DECLARE_EXCEPTION(PermissionException, Exception);
ZET_DECLARE_EXCEPTION(NameInUseException, Exception);
ZET_DECLARE_EXCEPTION(EntityIdUnavailableException, Exception);
ZET_DECLARE_EXCEPTION(AttrLogEntityException, Exception);
ZET_DECLARE_EXCEPTION(AttrLogRecordException, Exception);
// A listener that cannot open: the port is taken, the socket path unusable.
ZET_DECLARE_EXCEPTION(ListenException, Exception);

#undef ZET_DECLARE_EXCEPTION

[[noreturn]] void throwRangeException(String8 text);

// Marks exception kinds as expected for the lifetime of the guard, on this
// thread. Guards nest; a kind is expected when any live guard names it.
class Expect {
 public:
  explicit Expect(uint32_t kinds = kException);
  ~Expect();
  Expect(Expect const&) = delete;
  Expect& operator=(Expect const&) = delete;

  static bool isExpected(uint32_t kinds) noexcept;

 private:
  uint32_t saved_;
};

}  // namespace Zet
