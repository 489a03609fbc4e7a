// The command's memory settings, shared by the benchmarks that run the
// search in their own process so that they measure what the command does.
#pragma once

#include <malloc.h>

namespace ombrel::cli {

inline void UseSearchMemorySettings() {
  // The search builds and drops hundreds of megabytes in a few passes: memory
  // freed by one pass is kept for the next rather than handed back to the
  // system and faulted in again page by page.
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 512 << 20);
  // The search's other threads allocate from heaps of their own, which grow
  // by one mprotect call per page unless padded when made: pad them whole.
  mallopt(M_TOP_PAD, 64 << 20);
}

}  // namespace ombrel::cli
