// What an action raises, as text, for tests that check error messages byte
// for byte in one assertion.
#pragma once

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

}  // namespace ombrel
