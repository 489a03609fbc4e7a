#include "ombrel/foundation/messages.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <fstream>
#include <iostream>
#include <limits>
#include <mutex>

#include "foundation/utf8.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {
std::shared_ptr<IPrompt>& InstalledPrompt() {
  static std::shared_ptr<IPrompt> prompt;
  return prompt;
}
}  // namespace

int ConsolePrompt::MessageBox(const std::string& text, int style, const std::string& title) {
  std::cerr << (title.empty() ? "" : title + ": ") << text << std::endl;
  int buttons = style & 7;
  if (buttons == msgbox::kYesNo) return msgbox::kAnswerNo;
  if (buttons == msgbox::kYesNoCancel) return msgbox::kAnswerCancel;
  return msgbox::kAnswerOk;
}

int IPrompt::AskDeleteDupes(const std::string& text, bool& dontAskAgain) {
  (void)dontAskAgain;
  return MessageBox(text, msgbox::kYesNoCancel | msgbox::kQuestion, AppName());
}

void SetPrompt(std::shared_ptr<IPrompt> prompt) { InstalledPrompt() = std::move(prompt); }

IPrompt& GetPrompt() {
  static ConsolePrompt console;
  auto& p = InstalledPrompt();
  return p ? *p : console;
}

bool CResourceReader::Load(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::vector<std::pair<int32_t, std::string>> loaded;
  std::string line;
  bool firstLine = true;
  while (std::getline(in, line)) {
    // Editors on Windows often save UTF-8 with a byte order mark.
    if (firstLine && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    firstLine = false;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    // A line of nothing but blanks counts as blank too.
    if (line.find_first_not_of(" \t") == std::string::npos || line[0] == '#') continue;
    size_t tab = line.find('\t');
    if (tab == std::string::npos) return false;
    double id = 0;
    if (!CString::TryParseNumber(line.substr(0, tab), id)) return false;
    if (id != std::floor(id) || id < std::numeric_limits<int32_t>::min() || id > std::numeric_limits<int32_t>::max())
      return false;
    loaded.emplace_back(static_cast<int32_t>(id), line.substr(tab + 1));
  }
  std::stable_sort(loaded.begin(), loaded.end(), [](auto& a, auto& b) { return a.first < b.first; });
  strings_ = std::move(loaded);
  return true;
}

bool CResourceReader::Has(int32_t id) const {
  auto it = std::lower_bound(strings_.begin(), strings_.end(), id, [](auto& e, int32_t v) { return e.first < v; });
  return it != strings_.end() && it->first == id;
}

std::string CResourceReader::Get(int32_t id, size_t maxLength) const {
  auto it = std::lower_bound(strings_.begin(), strings_.end(), id, [](auto& e, int32_t v) { return e.first < v; });
  if (it == strings_.end() || it->first != id) RaiseTrap("Resource string not found: " + std::to_string(id));
  std::u32string cps = utf8::Decode(it->second);
  if (cps.size() > maxLength) cps.resize(maxLength);
  return utf8::Encode(cps);
}

void CResourceReader::Release() { strings_.clear(); }

std::string& AppName() {
  static std::string name;
  return name;
}

int64_t& HostWindow() {
  static int64_t window = 0;
  return window;
}

std::shared_ptr<CResourceReader>& ResourceReader() {
  static std::shared_ptr<CResourceReader> reader;
  return reader;
}

std::string GetResString(int32_t id, const std::vector<std::string>& substitutions) {
  std::string text;
  try {
    auto& reader = ResourceReader();
    Trap(!reader, "No resource file loaded");
    text = reader->Get(id, 4096);
    text = CString::ReplaceAll(text, "\\n", "\r\n");
    text = CString::ReplaceAll(text, "\\t", "\t");
    for (size_t i = 0; i < substitutions.size(); i += 2) {
      Trap(i + 1 >= substitutions.size(), "Substitution without a value");
      text = CString::ReplaceAll(text, substitutions[i], substitutions[i + 1]);
    }
  } catch (...) {
    // What was built so far is the answer; a string lookup never fails loudly.
  }
  return text;
}

void ReportError() {
  try {
    std::exception_ptr pending = std::current_exception();
    if (!pending) return;
    std::string description;
    try {
      std::rethrow_exception(pending);
    } catch (const Error& e) {
      if (e.Number() == 0) return;
      description = e.Description();
    } catch (const std::exception& e) {
      description = e.what();
    } catch (...) {
      description = "Unknown error";
    }
    GetPrompt().MessageBox("ERROR: " + description, msgbox::kCritical, AppName());
  } catch (...) {
    // Reporting an error must never raise another.
  }
}

void SortLongs(std::vector<int32_t>& values, int32_t first, int32_t last) {
  if (first >= last) return;
  Trap(first < 0 || static_cast<size_t>(last) >= values.size(),
       "SortLongs range out of bounds: " + std::to_string(first) + " to " + std::to_string(last));
  for (int32_t i = first; i < last; ++i) {
    int32_t smallest = i;
    for (int32_t j = i + 1; j <= last; ++j)
      if (values[j] < values[smallest]) smallest = j;
    if (smallest != i) std::swap(values[i], values[smallest]);
  }
}

std::string CutAtNul(std::string_view text) {
  size_t at = text.find('\0');
  return std::string(at == std::string_view::npos ? text : text.substr(0, at));
}

int32_t RoundHalfEven(double value) {
  double r = std::nearbyint(value);
  if (r > std::numeric_limits<int32_t>::max() || r < std::numeric_limits<int32_t>::min()) RaiseOverflow();
  return static_cast<int32_t>(r);
}

}  // namespace ombrel
