// What the command line shares between its commands: a progress line on
// standard error that appears only when the work is slow (the same rule as the
// search window), Ctrl-C turned into a polite stop request, yes/no questions
// on the terminal, and opening a card database with the shared manager
// connected to it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ombrel/dupes/database_actions.h"
#include "ombrel/dupes/dupe_search.h"

namespace ombrel {
class CSqliteCardStore;
}

namespace ombrel::cli {

// Installs the SIGINT handler; a first Ctrl-C asks the work to stop at its
// next safe point, a second one ends the process at once.
void InstallStopHandler();
bool StopRequested();

bool StdinIsTerminal();
bool StderrIsTerminal();

// Asks a yes/no question on the terminal: kYes only for yes; kStopped
// when Ctrl-C is pressed while it waits for the answer.
enum class Answer { kNo, kYes, kStopped };
Answer AskYesNo(const std::string& question);

// The text with its control characters written as escapes (\n, \r, \t,
// \x1b, \u009b...), so that text from a card cannot move the cursor, colour
// the terminal or forge lines of a report. With keepLineBreaks, line breaks
// (LF or CR LF) stay, as LF.
std::string Escaped(std::string_view text, bool keepLineBreaks = false);

// Flushes standard output and raises the reason when what was written could
// not all be written (a full disk, a closed pipe).
void FinishOutput();

// For a command that may create a database: unless kept, the file it made
// goes again when the command fails. (A file that was there stays as it
// was by itself: nothing is written to it before the command's one
// transaction commits.) Made before the store opens, gone after it closes.
class DatabaseFileGuard {
 public:
  explicit DatabaseFileGuard(const std::string& path);
  void Keep() { keep_ = true; }
  ~DatabaseFileGuard();
  DatabaseFileGuard(const DatabaseFileGuard&) = delete;
  DatabaseFileGuard& operator=(const DatabaseFileGuard&) = delete;

 private:
  std::string path_;
  bool existed_ = false;
  bool keep_ = false;
};

// The interface texts; a missing resource file is an error.
void LoadInterfaceTexts();

// Opens an existing card database and connects the shared CardStoreMgr() to
// it; forReading opens it read-only.
std::shared_ptr<CSqliteCardStore> ConnectDatabase(const std::string& path, bool forReading);

// Waits until no other ombrel apply works on the database at path, then
// keeps others waiting until this process ends. False when Ctrl-C was
// pressed while waiting.
bool LockForApply(const std::string& path);

// A progress line for the search and the database actions.
class TerminalProgress final : public ISearchProgress, public IActionProgress {
 public:
  TerminalProgress();
  ~TerminalProgress() override;

  // ISearchProgress
  void SetActionText(int32_t actionResourceId) override;
  bool UpdateProgress(int32_t resourceId, int32_t done, int32_t total) override;

  // IActionProgress
  void SetText(int32_t resourceId, int32_t done, int32_t total) override;
  void ProcessEvents() override;
  void Finished() override { Clear(); }
  void SetActions(CDatabaseActions* actions) { actions_ = actions; }

  void Clear();

 private:
  void Draw(int32_t resourceId, int32_t done, int32_t total);

  bool enabled_;
  bool shown_ = false;
  std::string action_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point lastDraw_;
  CDatabaseActions* actions_ = nullptr;
};

}  // namespace ombrel::cli
