// The one exception type of the system, and Trap, the assertion routine
// through which every class reports a condition that must never hold.
//
// An Error carries the three things a caller may inspect: a number, the
// source that raised it and a human-readable description. Trap raises the
// component-defined number 0x800403E8 with source "TRAP"; the few runtime
// conditions (overflow, a missing member of a store, a type mismatch) use
// the numbers the runtime would use for them.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace ombrel {

// 0x80040000 (base of component-defined errors) + 1000.
inline constexpr int32_t kTrapErrorNumber = static_cast<int32_t>(0x800403E8u);
inline constexpr const char* kTrapSource = "TRAP";
inline constexpr int32_t kOverflowErrorNumber = 6;
inline constexpr int32_t kTypeMismatchErrorNumber = 13;
inline constexpr int32_t kMissingMemberErrorNumber = 438;
inline constexpr int32_t kObjectNotSetErrorNumber = 91;

class Error : public std::exception {
 public:
  Error(int32_t number, std::string source, std::string description);

  int32_t Number() const { return number_; }
  const std::string& Source() const { return source_; }
  const std::string& Description() const { return description_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  int32_t number_;
  std::string source_;
  std::string description_;
};

// Does nothing when failed is false; otherwise raises an Error with
// kTrapErrorNumber, source "TRAP" and message ("TRAP error" when empty).
void Trap(bool failed, std::string_view message);

// Trap(true, message), for call sites that the compiler must know never return.
[[noreturn]] void RaiseTrap(std::string_view message);

// The runtime's arithmetic overflow (32-bit counts and sums).
[[noreturn]] void RaiseOverflow();

// What a late-bound call of a member that the object does not offer raises.
[[noreturn]] void RaiseMissingMember(std::string_view member);

// What using an empty object reference (an unset item) raises.
[[noreturn]] void RaiseObjectNotSet();

// Adds two 32-bit values, raising the overflow error when the sum does not fit.
int32_t CheckedAdd(int32_t a, int32_t b);
int32_t CheckedSub(int32_t a, int32_t b);

}  // namespace ombrel
