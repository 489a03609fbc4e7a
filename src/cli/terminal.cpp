#include "terminal.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/locale.h"
#include "ombrel/foundation/messages.h"

namespace ombrel::cli {

namespace {
std::atomic<int> g_interrupts{0};

void OnInterrupt(int) {
  if (g_interrupts.fetch_add(1) >= 1) _exit(130);
}
}  // namespace

void InstallStopHandler() {
  struct sigaction sa {};
  sa.sa_handler = OnInterrupt;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGINT, &sa, nullptr);
}

bool StopRequested() { return g_interrupts.load() > 0; }

bool StdinIsTerminal() { return isatty(STDIN_FILENO) == 1; }
bool StderrIsTerminal() { return isatty(STDERR_FILENO) == 1; }

bool AskYesNo(const std::string& question) {
  std::cerr << question << " [y/N] " << std::flush;
  std::string answer;
  if (!std::getline(std::cin, answer)) return false;
  return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" || answer == "YES";
}

void LoadInterfaceTexts() {
  std::string dir = DefaultLocaleDir();
  Trap(!LoadResources(dir), "Unable to load resource file. Please reinstall the application.");
  AppName() = GetResString(206);
}

std::shared_ptr<CSqliteCardStore> ConnectDatabase(const std::string& path) {
  std::shared_ptr<CSqliteCardStore> store = CSqliteCardStore::Open(path, OpenMode::kOpenExisting);
  if (auto& old = CardStoreMgr()) {
    try {
      old->Disconnect();
    } catch (...) {
    }
  }
  auto mgr = std::make_shared<CCardStoreMgr>();
  mgr->SetCardStore(store);
  mgr->Connect();
  CardStoreMgr() = mgr;
  return store;
}

TerminalProgress::TerminalProgress()
    : enabled_(StderrIsTerminal()),
      action_(GetResString(search_text::kActionOther)),
      start_(std::chrono::steady_clock::now()),
      lastDraw_(start_) {}

TerminalProgress::~TerminalProgress() { Clear(); }

void TerminalProgress::SetActionText(int32_t actionResourceId) { action_ = GetResString(actionResourceId); }

bool TerminalProgress::UpdateProgress(int32_t resourceId, int32_t done, int32_t total) {
  if (StopRequested()) return false;
  Draw(resourceId, done, total);
  return !StopRequested();
}

void TerminalProgress::SetText(int32_t resourceId, int32_t done, int32_t total) { Draw(resourceId, done, total); }

void TerminalProgress::ProcessEvents() {
  if (actions_ && StopRequested()) actions_->StopAction();
}

void TerminalProgress::Draw(int32_t resourceId, int32_t done, int32_t total) {
  if (!enabled_) return;
  auto now = std::chrono::steady_clock::now();
  auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(now - start_).count();
  if (!shown_ && !ShouldShowProgress(elapsed, done, total)) return;
  if (shown_ && now - lastDraw_ < std::chrono::milliseconds(100) && done != total) return;
  shown_ = true;
  lastDraw_ = now;
  constexpr int kWidth = 30;
  int filled = total > 0 ? static_cast<int>(static_cast<int64_t>(kWidth) * MinOf(done, total) / total) : 0;
  std::string bar = "[" + std::string(static_cast<size_t>(filled), '#') + std::string(static_cast<size_t>(kWidth - filled), '.') + "]";
  std::string text = GetResString(resourceId, {"%1", std::to_string(done), "%2", std::to_string(total)});
  std::string line = (action_.empty() ? "" : action_ + " ") + text + " " + bar;
  std::fprintf(stderr, "\r\033[K%s", line.c_str());
  std::fflush(stderr);
}

void TerminalProgress::Clear() {
  if (!shown_) return;
  std::fprintf(stderr, "\r\033[K");
  std::fflush(stderr);
  shown_ = false;
}

}  // namespace ombrel::cli
