// CDuplicatesWizard: what a host application creates to run the duplicates
// wizard over its card store.
//
//   ombrel::CDuplicatesWizard wizard;
//   wizard.SetAppName("My Contacts");           // optional: titles of messages
//   wizard.SetModalOn(mainWindow->winId());     // or SetModalOff for a modeless wizard
//   if (wizard.Connect(store) == 1) wizard.Show();
//
// Window handles are native window ids (0 = none). A modal Show returns
// once the wizard is closed; a modeless one returns at once, the wizard
// staying in front of the host's window, and Hide closes it. Connect and Show
// never raise: they answer 1 on success and 0, silently, on failure. The host
// must have made its QApplication before Show.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace ombrel {

class ICardStore;

class CDuplicatesWizard {
 public:
  CDuplicatesWizard() = default;

  // Both only record: the host's window, and whether Show is modal. Answer 1.
  int32_t SetModalOn(int64_t hWnd);
  int32_t SetModalOff(int64_t hWnd);
  // The title of every message box; empty means the product's name.
  void SetAppName(const std::string& appName);
  // Replaces the shared card store manager by one connected to cardStore.
  int32_t Connect(std::shared_ptr<ICardStore> cardStore);
  // Loads the interface texts and shows the wizard.
  int32_t Show();
  // Closes the wizard; reports an error left by closing it. Always 1.
  int32_t Hide();

  bool IsModal() const { return isModal_; }

 private:
  bool isModal_ = false;
};

}  // namespace ombrel
