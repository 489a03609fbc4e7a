// ombrel merge-card: the merge dialog between a card of the database and one
// card record of another address book (a .jsonl card line): the user picks
// the values to keep; the merged card is printed and, with --write, written
// back to the stored card in one update.
#include <QApplication>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <nlohmann/json.hpp>

#include "cli/merge_card.h"
#include "commands.h"
#include "options.h"
#include "ombrel/cards/ccard.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/image_registry.h"
#include "ombrel/cardstore/jsonl.h"
#include "ombrel/cardstore/sqlite_card_store.h"
#include "ombrel/foundation/error.h"
#include "ombrel/foundation/messages.h"
#include "ombrel/review/cmergedialog.h"
#include "ui/startup.h"

namespace ombrel::cli {

namespace fs = std::filesystem;

namespace {

// An image given with a card record may be at most this large.
constexpr uintmax_t kMaxImageBytes = 50u << 20;

struct OtherRecord {
  int64_t line = 0;
  std::map<std::string, std::string> values;
  int32_t image = 0;  // registered handle, 0 for none
};

int32_t RegisterImage(const std::string& reference, const fs::path& baseDir, int64_t line) {
  auto fail = [&](const std::string& why) -> int32_t {
    throw Error(kTrapErrorNumber, "TRAP", "line " + std::to_string(line) + ": front_image: " + why);
  };
  StoredImage image;
  if (reference.rfind("data:", 0) == 0) {
    const size_t comma = reference.find(',');
    if (comma == std::string::npos || !jsonl::DecodeBase64(std::string_view(reference).substr(comma + 1), image.bytes))
      return fail("not a base64 data: URI");
  } else {
    const fs::path path = baseDir / reference;
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return fail(path.string() + " is not a file");
    if (fs::file_size(path, ec) > kMaxImageBytes) return fail(path.string() + " is larger than 50 MB");
    std::ifstream in(path, std::ios::binary);
    image.bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  image.format = ImageRegistry::DetectFormat(image.bytes);
  if (image.format.empty()) return fail("not a PNG, JPEG or BMP image");
  return ImageRegistry::Instance().Register(std::move(image));
}

// The first card line of the file, or line `line`.
OtherRecord ReadRecord(const fs::path& file, int64_t wanted) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Error(kTrapErrorNumber, "TRAP", "cannot read " + file.string());
  std::string text;
  for (int64_t line = 1; std::getline(in, text); ++line) {
    if (wanted != 0 && line != wanted) continue;
    if (text.find_first_not_of(" \t\r") == std::string::npos) {
      if (wanted != 0) break;
      continue;
    }
    nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    const std::string where = file.string() + " line " + std::to_string(line);
    if (json.is_discarded() || !json.is_object()) throw Error(kTrapErrorNumber, "TRAP", where + ": not a JSON object");
    if (!json.contains("values")) {
      if (wanted != 0) throw Error(kTrapErrorNumber, "TRAP", where + ": not a card line");
      continue;
    }
    OtherRecord record;
    record.line = line;
    if (!json["values"].is_object()) throw Error(kTrapErrorNumber, "TRAP", where + ": values is not an object");
    for (const auto& [name, value] : json["values"].items()) {
      if (!value.is_string()) throw Error(kTrapErrorNumber, "TRAP", where + ": value " + name + " is not a text");
      record.values[name] = value.get<std::string>();
    }
    if (json.contains("front_image") && json["front_image"].is_string())
      record.image = RegisterImage(json["front_image"].get<std::string>(), file.parent_path(), line);
    return record;
  }
  throw Error(kTrapErrorNumber, "TRAP",
              wanted != 0 ? file.string() + " has no line " + std::to_string(wanted) : file.string() + " has no card line");
}

bool IsBookkeeping(const std::string& name) {
  return name == "Creation Date" || name == "Modified Date" || name == "Solvane Status";
}

// The merged card's fields, its front image when the other record's was
// chosen, and names that the merged "Name" still contains, in one update.
void WriteBack(CCardStoreMgr& mgr, int32_t id, const CCard& merged, const OtherRecord& other) {
  std::string first = mgr.GetValue(id, "First Name"), last = mgr.GetValue(id, "Last Name");
  auto fits = [&](const std::string& lastName) {
    try {
      CCard::CheckLastName(merged.FieldText("Name"), lastName);
      return true;
    } catch (const Error&) {
      return false;
    }
  };
  bool namesChanged = false;
  if (!fits(last)) {
    auto value = [&](const char* name) { return other.values.count(name) ? other.values.at(name) : std::string(); };
    namesChanged = true;
    if (fits(value("Last Name"))) first = value("First Name"), last = value("Last Name");
    else first.clear(), last.clear();
  }
  mgr.WithinUpdate([&](CCardStoreMgr& m) {
    for (int32_t i = 1; i <= merged.NumFields(); ++i) {
      const CCardField& field = merged.FieldAt(i);
      if (IsBookkeeping(field.Name())) continue;
      m.PutValue(id, field.Name(), field.Text());
      if (field.IsExtraField()) m.PutValue(id, field.Name() + ".Label", field.Label());
    }
    if (namesChanged) {
      m.PutValue(id, "First Name", first);
      m.PutValue(id, "Last Name", last);
    }
    if (merged.frontImage && merged.frontImage->Value() == 3 && other.image != 0) m.SetCardDIB(id, other.image);
  });
}

}  // namespace

int RunMergeCard(const MergeOptions& o) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM") && !qEnvironmentVariableIsSet("DISPLAY") &&
      !qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) {
    std::cerr << "error: the merge dialog needs a display (set DISPLAY, or QT_QPA_PLATFORM=offscreen)\n";
    return 1;
  }
  std::shared_ptr<CSqliteCardStore> store = CSqliteCardStore::Open(o.db, OpenMode::kOpenExisting);
  CCardStoreMgr mgr;
  mgr.SetCardStore(store);
  mgr.Connect();
  std::shared_ptr<CCard> card = mgr.GetCard(o.card);
  const int32_t ownImage = mgr.GetCardDIB(o.card);
  const OtherRecord other = ReadRecord(o.with, o.line);

  static int argc = 1;
  static char name[] = "ombrel";
  static char* argv[] = {name, nullptr};
  std::optional<QApplication> app;
  if (!QCoreApplication::instance()) app.emplace(argc, argv);
  QApplication::setApplicationName("Ombrel");
  ui::SetRequestedLanguage(o.lang);
  ui::InitResources();

  CMergeDialog merge;
  for (int32_t i = 1; i <= card->NumFields(); ++i) {
    const CCardField& field = card->FieldAt(i);
    auto value = other.values.find(field.Name());
    merge.SetFieldData(field.Name(), field.Text(), field.Label(),
                       value == other.values.end() ? std::string() : value->second);
  }
  merge.SetImages(ownImage, other.image);
  const std::string headers = GetResString(804, {"%1", std::to_string(o.card)}) + "\t" +
                              GetResString(805, {"%1", fs::path(o.with).filename().string(), "%2",
                                                 std::to_string(other.line)});
  const bool cancelled = merge.Show(0, GetResString(803), headers);
  if (cancelled) {
    std::cerr << "Merge cancelled: nothing was written.\n";
    return 130;
  }
  std::string data;
  merge.GetCardData(data);
  // One field a line: name, a tab, the text.
  for (size_t at = 0; at < data.size();) {
    const size_t nameEnd = data.find('\t', at), textEnd = data.find('\t', nameEnd + 1);
    std::cout << data.substr(at, nameEnd - at) << '\t' << data.substr(nameEnd + 1, textEnd - nameEnd - 1) << '\n';
    at = textEnd + 1;
  }
  std::cout.flush();
  if (!std::cout) throw Error(kTrapErrorNumber, "TRAP", "the merged card could not be written to the output");
  if (o.write) {
    WriteBack(mgr, o.card, *merge.MergedCard(), other);
    std::cerr << "The merged card was written to card " << o.card << ".\n";
  }
  return 0;
}

void AddMergeCardCommand(CLI::App& app) {
  auto options = std::make_shared<MergeOptions>();
  CLI::App* cmd = app.add_subcommand("merge-card", "Merge a card with a record of another address book");
  cmd->footer(
      "Shows the merge dialog between a stored card and one card line of a .jsonl file (the first card line, "
      "or line N) and prints the merged card, one field a line. With --write the merged fields go back to the "
      "stored card in one update. Cancel writes nothing (exit code 130).");
  cmd->add_option("--db", options->db, "The card database (SQLite file)")->required()->check(kNonEmptyPath);
  cmd->add_option("--card", options->card, "The ID of the stored card")->required()->check(WholeNumber(1, INT32_MAX));
  cmd->add_option("--with", options->with, "A .jsonl file holding the other record")->required()->check(kNonEmptyPath);
  cmd->add_option("--line", options->line, "The line of the other record (1-based)")
      ->check(WholeNumber(1, uint64_t{1} << 40));
  cmd->add_flag("--write", options->write, "Write the merged card back to the database");
  cmd->add_option("--lang", options->lang, "Interface language: en, de, fr or es")
      ->check(CLI::IsMember({"en", "de", "fr", "es"}));
  cmd->callback([options] {
    if (int code = RunMergeCard(*options); code != 0) throw CLI::RuntimeError(code);
  });
}

}  // namespace ombrel::cli
