// What an action raises, as text or number, for tests that check errors
// exactly in one assertion.
#pragma once

#include <cstdint>
#include <string>

#include "ombrel/foundation/error.h"

namespace ombrel {

// The description of the trap f raises, or why it is not one.
template <class F>
std::string TrapText(F f) {
  try {
    f();
  } catch (const Error& e) {
    return e.Number() == kTrapErrorNumber && e.Source() == "TRAP" ? e.Description() : "not a trap: " + e.Description();
  }
  return "no trap";
}

// The description of whatever system error f raises.
template <class F>
std::string ErrorText(F f) {
  try {
    f();
  } catch (const Error& e) {
    return e.Description();
  }
  return "<no error>";
}

// The number of the system error f raises; 0 when it raises none.
template <class F>
int32_t ErrorNumber(F f) {
  try {
    f();
  } catch (const Error& e) {
    return e.Number();
  }
  return 0;
}

}  // namespace ombrel
