// The help: one HTML topic per window in the help folder beside the
// interface texts, shown in the component's own viewer (it works offline and
// needs nothing installed). A topic missing in the user's language is shown
// in English.
#pragma once

#include <QWidget>
#include <string>

namespace ombrel::ui {

namespace help_context {
inline constexpr int kWizard = 3031;
inline constexpr int kReview = 3032;
inline constexpr int kMerge = 3033;
inline constexpr int kZoom = 3034;
inline constexpr int kCategories = 3035;
inline constexpr int kDatabaseActions = 3036;
inline constexpr int kSearch = 3037;
inline constexpr int kDeleteQuestion = 3038;
}  // namespace help_context

// The topic's file name in the help folder ("wizard.html"); the contents
// page for a context without a topic of its own.
std::string HelpTopicFile(int contextId);
// The topic's full path: in the help folder, else in the English one; empty
// when neither has it.
std::string HelpTopicPath(int contextId);
// Opens the help viewer at the topic (reusing it when it is open).
void ShowHelp(int contextId);
// F1 in window opens its topic.
void InstallHelpKey(QWidget* window, int contextId);

}  // namespace ombrel::ui
