#include "ombrel/foundation/error.h"

#include <limits>

namespace ombrel {

Error::Error(int32_t number, std::string source, std::string description)
    : number_(number), source_(std::move(source)), description_(std::move(description)) {}

void Trap(bool failed, std::string_view message) {
  if (failed) RaiseTrap(message);
}

void RaiseTrap(std::string_view message) {
  throw Error(kTrapErrorNumber, kTrapSource, message.empty() ? std::string("TRAP error") : std::string(message));
}

void RaiseOverflow() { throw Error(kOverflowErrorNumber, "Ombrel", "Overflow"); }

void RaiseMissingMember(std::string_view member) {
  throw Error(kMissingMemberErrorNumber, "Ombrel",
              "Object doesn't support this property or method: " + std::string(member));
}

void RaiseObjectNotSet() { throw Error(kObjectNotSetErrorNumber, "Ombrel", "Object variable not set"); }

int32_t CheckedAdd(int32_t a, int32_t b) {
  int64_t r = static_cast<int64_t>(a) + b;
  if (r > std::numeric_limits<int32_t>::max() || r < std::numeric_limits<int32_t>::min()) RaiseOverflow();
  return static_cast<int32_t>(r);
}

int32_t CheckedSub(int32_t a, int32_t b) {
  int64_t r = static_cast<int64_t>(a) - b;
  if (r > std::numeric_limits<int32_t>::max() || r < std::numeric_limits<int32_t>::min()) RaiseOverflow();
  return static_cast<int32_t>(r);
}

}  // namespace ombrel
