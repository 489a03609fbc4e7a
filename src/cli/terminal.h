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

// Asks a yes/no question on the terminal; answers false on anything but yes.
bool AskYesNo(const std::string& question);

// The interface texts; a missing resource file is an error.
void LoadInterfaceTexts();

// Opens an existing card database and connects the shared CardStoreMgr() to it.
std::shared_ptr<CSqliteCardStore> ConnectDatabase(const std::string& path);

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
