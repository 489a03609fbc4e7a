// The prompt service of the windows: message boxes and the delete-dupes
// question as real dialogs over the window the user works in.
#pragma once

#include "ombrel/foundation/messages.h"

namespace ombrel::ui {

class QtPrompt final : public IPrompt {
 public:
  int MessageBox(const std::string& text, int style, const std::string& title) override;
  int AskDeleteDupes(const std::string& text, bool& dontAskAgain) override;
};

// Installs a QtPrompt unless a prompt other than the console's is installed
// already (a test's, or a host's own).
void UseWindowPrompt();

}  // namespace ombrel::ui
