#include "terminal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
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

Answer AskYesNo(const std::string& question) {
  std::cerr << question << " [y/N] " << std::flush;
  // Read by hand: the streams retry a read that Ctrl-C interrupts, which
  // would keep waiting for an answer nobody means to give.
  std::string answer;
  for (;;) {
    if (StopRequested()) {
      std::cerr << "\n";
      return Answer::kStopped;
    }
    char c = 0;
    const ssize_t n = ::read(STDIN_FILENO, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || c == '\n') break;
    answer.push_back(c);
  }
  if (StopRequested()) return Answer::kStopped;
  const bool yes = answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" || answer == "YES";
  return yes ? Answer::kYes : Answer::kNo;
}

std::string Escaped(std::string_view text, bool keepLineBreaks) {
  std::string out;
  out.reserve(text.size());
  char hex[8];
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (keepLineBreaks && (c == '\n' || (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n'))) {
      if (c == '\r') ++i;
      out += '\n';
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7F) {
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else if (c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
               static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
      // U+0080 to U+009F: the eight-bit controls some terminals obey.
      std::snprintf(hex, sizeof hex, "\\u%04x", static_cast<unsigned char>(text[++i]));
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

void FinishOutput() {
  errno = 0;
  std::cout.flush();
  if (!std::cout) {
    // The stream may have failed long before this last flush, errno with it.
    RaiseTrap(std::string("cannot write the output") + (errno ? std::string(": ") + std::strerror(errno) : ""));
  }
}

DatabaseFileGuard::DatabaseFileGuard(const std::string& path) : path_(path) {
  std::error_code ec;
  existed_ = std::filesystem::exists(std::filesystem::symlink_status(path, ec));
}

DatabaseFileGuard::~DatabaseFileGuard() {
  if (keep_ || existed_) return;
  // The store lays the schema in the same transaction as the first cards,
  // so a failed command has left the file it made empty: it goes, unless
  // another process has written to it meanwhile.
  std::error_code ec;
  if (std::filesystem::exists(path_ + "-journal", ec) || std::filesystem::exists(path_ + "-wal", ec)) return;
  if (std::filesystem::file_size(path_, ec) == 0 && !ec) std::filesystem::remove(path_, ec);
}

void LoadInterfaceTexts() {
  std::string dir = DefaultLocaleDir();
  Trap(!LoadResources(dir), "Unable to load resource file. Please reinstall the application.");
  AppName() = GetResString(206);
}

bool LockForApply(const std::string& path) {
  // A lock on the database file itself (flock, which SQLite's own locks
  // never meet), held through a descriptor that stays open until the
  // process ends: closing it earlier would drop SQLite's locks on the file.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return true;  // opening the database says what is wrong
  if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
  std::cerr << "Waiting for another ombrel apply on " << path << " to finish...\n";
  while (::flock(fd, LOCK_EX) != 0) {
    if (errno != EINTR) return true;
    if (StopRequested()) return false;
  }
  return true;
}

std::shared_ptr<CSqliteCardStore> ConnectDatabase(const std::string& path, bool forReading) {
  std::shared_ptr<CSqliteCardStore> store =
      CSqliteCardStore::Open(path, forReading ? OpenMode::kReadOnly : OpenMode::kOpenExisting);
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
