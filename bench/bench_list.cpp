// Times the CList operations that every large card run leans on: filling a
// list of a million numbers, walking it by position in both directions,
// editing beside the cursor while walking, and emptying it. Each phase is
// expected to stay well under a second; the program exits with status 1 when
// one does not.
//
// Usage: bench_list [items]   (default 1000000)

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/clist.h"

using ombrel::CList;
using ombrel::CLong;

namespace {

struct Row {
  std::string phase;
  double seconds;
  int64_t check;  // a value computed from the list, so no phase can be skipped
};

double Time(const std::function<void()>& body) {
  auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Fill(CList& list, int32_t n) {
  for (int32_t i = 1; i <= n; ++i) list.AddItem(std::make_shared<CLong>(i));
}

int64_t ValueAt(const CList& list, int32_t position) {
  return std::static_pointer_cast<CLong>(list.GetItem(position))->Value();
}

}  // namespace

int main(int argc, char** argv) {
  const int32_t n = argc > 1 ? static_cast<int32_t>(std::strtol(argv[1], nullptr, 10)) : 1000000;
  if (n < 2) {
    std::fprintf(stderr, "usage: %s [items >= 2]\n", argv[0]);
    return 2;
  }
  std::vector<Row> rows;
  CList list;
  int64_t check = 0;

  rows.push_back({"fill (AddItem)", Time([&] { Fill(list, n); }), list.GetNumItems()});

  check = 0;
  rows.push_back({"walk forward 1..n", Time([&] {
                    for (int32_t i = 1; i <= n; ++i) check += ValueAt(list, i);
                  }),
                  check});

  check = 0;
  rows.push_back({"walk backward n..1", Time([&] {
                    for (int32_t i = n; i >= 1; --i) check += ValueAt(list, i);
                  }),
                  check});

  // Walk forward, inserting before every tenth item and removing it again at once.
  check = 0;
  rows.push_back({"walk + insert/remove at cursor", Time([&] {
                    for (int32_t i = 1; i <= list.GetNumItems(); ++i) {
                      check += ValueAt(list, i);
                      if (i % 10 == 0) {
                        list.InsertItem(i, std::make_shared<CLong>(-1));
                        list.RemoveItem(i);
                      }
                    }
                  }),
                  check});

  // Walk backward, removing every other item: the list ends half as long.
  check = 0;
  rows.push_back({"walk back + remove every 2nd", Time([&] {
                    for (int32_t i = list.GetNumItems(); i >= 1; --i) {
                      check += ValueAt(list, i);
                      if (i % 2 == 0) list.RemoveItem(i);
                    }
                  }),
                  list.GetNumItems()});

  rows.push_back({"clear (RemoveAll)", Time([&] { list.RemoveAll(); }), list.GetNumItems()});

  Fill(list, n);
  rows.push_back({"clear (RemoveLast one by one)", Time([&] {
                    while (list.GetNumItems() > 0) list.RemoveLast();
                  }),
                  list.GetNumItems()});

  Fill(list, n);
  rows.push_back({"clear (RemoveItem 1 one by one)", Time([&] {
                    while (list.GetNumItems() > 0) list.RemoveItem(1);
                  }),
                  list.GetNumItems()});

  bool slow = false;
  std::printf("CList with %d CLong items\n", n);
  std::printf("%-34s %12s %16s\n", "phase", "ms", "check");
  for (const Row& r : rows) {
    bool over = r.seconds >= 1.0;
    slow = slow || over;
    std::printf("%-34s %12.1f %16lld%s\n", r.phase.c_str(), r.seconds * 1000.0, static_cast<long long>(r.check),
                over ? "  SLOW" : "");
  }
  return slow ? 1 : 0;
}
