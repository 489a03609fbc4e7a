// The module layer every class and window stands on: the shared state
// (AppName, HostWindow, the resource reader), localized strings by number,
// the error report that ends every user-event handler, and a few value
// utilities.
//
// Message boxes never go straight to a window system: they go through the
// IPrompt currently installed, which the windows implement with real dialogs,
// the command line with the terminal, and tests with scripted answers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ombrel {

// Message box styles and answers, as numbers, as the windows expect them.
namespace msgbox {
inline constexpr int kOkOnly = 0;
inline constexpr int kYesNoCancel = 3;
inline constexpr int kYesNo = 4;
inline constexpr int kCritical = 16;
inline constexpr int kQuestion = 32;
inline constexpr int kExclamation = 48;
inline constexpr int kInformation = 64;
inline constexpr int kAnswerOk = 1;
inline constexpr int kAnswerCancel = 2;
inline constexpr int kAnswerYes = 6;
inline constexpr int kAnswerNo = 7;
}  // namespace msgbox

class IPrompt {
 public:
  virtual ~IPrompt() = default;
  // Shows text with the given style (buttons + icon), titled title; answers the button pressed.
  virtual int MessageBox(const std::string& text, int style, const std::string& title) = 0;
  // The review's question before it deletes the duplicates left in a set:
  // Yes, No or Cancel, with a "don't ask again" box whose state comes back in
  // dontAskAgain. A plain prompt asks it as a Yes/No/Cancel message box.
  virtual int AskDeleteDupes(const std::string& text, bool& dontAskAgain);
};

// Writes messages to standard error and answers every question with its
// default: No for Yes/No, Cancel for Yes/No/Cancel, OK otherwise.
class ConsolePrompt final : public IPrompt {
 public:
  int MessageBox(const std::string& text, int style, const std::string& title) override;
};

// Installs the prompt every message goes through (null restores the console prompt).
void SetPrompt(std::shared_ptr<IPrompt> prompt);
IPrompt& GetPrompt();

// Style bits of the default button: the second or third instead of the first.
namespace msgbox {
inline constexpr int kDefaultButton2 = 256;
inline constexpr int kDefaultButton3 = 512;
}  // namespace msgbox

// Loads localized strings from a UTF-8 text file, one per line:
// "<number><TAB><text>"; blank lines and lines starting with # are ignored.
class CResourceReader {
 public:
  bool Load(const std::string& path);
  // The text of id, at most maxLength characters; raises for an unknown id.
  std::string Get(int32_t id, size_t maxLength) const;
  bool Has(int32_t id) const;
  void Release();

 private:
  std::vector<std::pair<int32_t, std::string>> strings_;  // sorted by id
};

// Shared state, one instance per process.
std::string& AppName();
int64_t& HostWindow();
std::shared_ptr<CResourceReader>& ResourceReader();

// The resource text id with backslash-n and backslash-t turned into CR LF and
// tab, then each (placeholder, value) pair applied in order. Never raises:
// on any error it answers what it had built so far, possibly empty.
std::string GetResString(int32_t id, const std::vector<std::string>& substitutions = {});

// To be called inside a catch block: shows "ERROR: " + the error's description
// with the critical icon, titled AppName. Never raises; outside a catch it does nothing.
void ReportError();

// Sorts values[first..last] ascending in place by selection (first of equals wins).
void SortLongs(std::vector<int32_t>& values, int32_t first, int32_t last);
std::string CutAtNul(std::string_view text);

template <class T>
T MaxOf(const T& a, const T& b) {
  return a > b ? a : b;
}
template <class T>
T MinOf(const T& a, const T& b) {
  return a < b ? a : b;
}

// Rounds to the nearest integer, halves to the even neighbour, as the runtime's conversions do.
int32_t RoundHalfEven(double value);

}  // namespace ombrel
