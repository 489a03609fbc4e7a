// ombrel merge-card, for the command and for tests that drive its dialog.
#pragma once

#include <cstdint>
#include <string>

namespace ombrel::cli {

struct MergeOptions {
  std::string db;
  int32_t card = 0;
  std::string with;  // the .jsonl file of the other record
  int64_t line = 0;  // 0: its first card line
  bool write = false;
  std::string lang;
};

// Shows the merge, prints the merged card and, with write, writes it back.
// Answers the exit code: 0, or 130 when the user cancelled. Raises what
// goes wrong, having written nothing.
int RunMergeCard(const MergeOptions& options);

}  // namespace ombrel::cli
