// The layout both progress windows share (the search's and the database
// actions'): what is being done in bold, the running count, a bar, and one
// button that stops the work.
#pragma once

#include <QDialog>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <string>

namespace ombrel::ui {

struct ProgressControls {
  QLabel* lblAction;
  QLabel* lblText;
  QProgressBar* ProgressBar1;
  QPushButton* stop;
};

// Makes the controls in window, the button named buttonName with the text
// captionId, the bar running from 0 to barMaximum.
ProgressControls MakeProgressControls(QDialog* window, const char* buttonName, int32_t captionId, int barMaximum);

// A label's text and accessible name from a resource text.
void SetLabelText(QLabel* label, const std::string& text);

}  // namespace ombrel::ui
