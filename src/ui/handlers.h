// Every user-event handler runs its body through Guarded: whatever the body
// raises ends there, shown by ReportError, and the window keeps the state the
// body reached.
#pragma once

#include "ombrel/foundation/messages.h"

namespace ombrel::ui {

template <class Body>
void Guarded(Body&& body) noexcept {
  try {
    body();
  } catch (...) {
    ReportError();
  }
}

// Sets a flag for the length of a handler and clears it however the handler ends.
class BusyFlag {
 public:
  explicit BusyFlag(bool& flag) : flag_(flag) { flag_ = true; }
  ~BusyFlag() { flag_ = false; }
  BusyFlag(const BusyFlag&) = delete;
  BusyFlag& operator=(const BusyFlag&) = delete;

 private:
  bool& flag_;
};

}  // namespace ombrel::ui
