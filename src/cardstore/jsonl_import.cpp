// Import of .jsonl card files: one transaction for the whole file, so a bad
// line anywhere leaves the database exactly as it was.
#include <fstream>
#include <istream>
#include <limits>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "ombrel/cardstore/jsonl.h"
#include "ombrel/foundation/error.h"

namespace ombrel::jsonl {

namespace {

using Json = nlohmann::ordered_json;

// A failure of one line; the importer adds the line number.
struct LineError {
  std::string message;
};

[[noreturn]] void Bad(std::string message) { throw LineError{std::move(message)}; }

std::string Quoted(std::string_view s) {
  std::string q(1, '"');
  q.append(s).push_back('"');
  return q;
}

std::string ReadString(const Json& j, const char* what) {
  if (!j.is_string()) Bad(std::string(what) + " must be a string");
  return j.get<std::string>();
}

std::vector<CustomFieldDef> ParseCustomFields(const Json& list) {
  if (!list.is_array()) Bad("\"custom_fields\" must be an array");
  std::vector<CustomFieldDef> fields;
  for (const auto& item : list) {
    if (!item.is_object()) Bad("each custom field must be an object");
    CustomFieldDef def;
    bool named = false;
    for (const auto& [key, value] : item.items()) {
      if (key == "name") {
        def.name = ReadString(value, "a custom field's \"name\"");
        named = true;
      } else if (key == "type") {
        def.type = ReadString(value, "a custom field's \"type\"");
      } else if (key == "visibility") {
        def.visibility = ReadString(value, "a custom field's \"visibility\"");
      } else if (key == "access") {
        def.access = ReadString(value, "a custom field's \"access\"");
      } else {
        Bad("unknown key " + Quoted(key) + " in a custom field");
      }
    }
    if (!named) Bad("a custom field has no \"name\"");
    fields.push_back(std::move(def));
  }
  return fields;
}

void ApplyDatabaseLine(CSqliteCardStore& store, const Json& db) {
  if (!db.is_object()) Bad("\"database\" must be an object");
  std::vector<CustomFieldDef> fields;
  std::vector<std::string> categories;
  for (const auto& [key, value] : db.items()) {
    if (key == "custom_fields") {
      fields = ParseCustomFields(value);
    } else if (key == "categories") {
      if (!value.is_array()) Bad("\"categories\" must be an array");
      for (const auto& c : value) categories.push_back(ReadString(c, "a category"));
    } else {
      Bad("unknown key " + Quoted(key) + " in \"database\"");
    }
  }
  if (store.DefineCustomFields(fields) != 0) Bad(store.GetLastError());
  if (store.DefineCategories(categories) != 0) Bad(store.GetLastError());
}

bool ReadImage(const Json& ref, const char* key, const std::filesystem::path& baseDir, StoredImage& image) {
  if (ref.is_null()) return false;
  if (!ref.is_string()) Bad(Quoted(key) + " must be a string or null");
  const std::string& text = ref.get_ref<const std::string&>();
  if (text.rfind("data:", 0) == 0) {
    auto comma = text.find(',');
    if (comma == std::string::npos || text.substr(0, comma).find(";base64") == std::string::npos) {
      Bad(Quoted(key) + " is a data: URI without base64 data");
    }
    if (!DecodeBase64(std::string_view(text).substr(comma + 1), image.bytes)) {
      Bad(Quoted(key) + " holds invalid base64");
    }
  } else {
    std::filesystem::path path = baseDir / std::filesystem::u8path(text);
    std::ifstream in(path, std::ios::binary);
    if (!in) Bad("cannot read " + std::string(key) + " " + Quoted(text));
    image.bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) Bad("cannot read " + std::string(key) + " " + Quoted(text));
  }
  image.format = ImageRegistry::DetectFormat(image.bytes);
  if (image.format.empty()) {
    Bad(std::string(key) + " " + Quoted(text.size() > 60 ? text.substr(0, 60) + "..." : text) +
        " is not a PNG, JPEG or BMP image");
  }
  return true;
}

class Importer {
 public:
  Importer(CSqliteCardStore& store, const std::filesystem::path& baseDir) : store_(store), baseDir_(baseDir) {}

  void Line(int64_t lineNumber, const std::string& text) {
    Json j;
    try {
      j = Json::parse(text);
    } catch (const Json::parse_error& e) {
      std::string what = e.what();
      // Keep the parser's explanation, not its exception tag.
      if (auto pos = what.find("] "); pos != std::string::npos) what = what.substr(pos + 2);
      Bad("malformed JSON: " + what);
    }
    if (!j.is_object()) Bad("a line must be a JSON object");
    if (j.contains("database")) {
      if (j.size() != 1) Bad("the database line holds only \"database\"");
      if (sawCard_ || sawDatabase_) Bad("the database line must be the first line");
      sawDatabase_ = true;
      ApplyDatabaseLine(store_, j["database"]);
      return;
    }
    Card(lineNumber, j);
  }

  Counts counts;

 private:
  void Card(int64_t lineNumber, const Json& j) {
    sawCard_ = true;
    bool hasId = false;
    int64_t id = 0;
    CardValueList values;
    StoredImage front, back;
    bool hasFront = false, hasBack = false;
    for (const auto& [key, value] : j.items()) {
      if (key == "id") {
        if (!value.is_number_integer()) Bad("\"id\" must be an integer");
        if (value.is_number_unsigned()) {
          auto u = value.get<uint64_t>();
          id = u > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) ? std::numeric_limits<int64_t>::max()
                                                                               : static_cast<int64_t>(u);
        } else {
          id = value.get<int64_t>();
        }
        if (id < 1 || id > std::numeric_limits<int32_t>::max()) {
          Bad("card id " + value.dump() + " is out of range (1 to 2147483647)");
        }
        hasId = true;
      } else if (key == "values") {
        if (!value.is_object()) Bad("\"values\" must be an object");
        values.reserve(value.size());
        for (const auto& [name, text] : value.items()) {
          if (text.is_null()) continue;  // absent, as if not given
          if (!text.is_string()) Bad("value " + Quoted(name) + " must be a string");
          values.emplace_back(name, text.get_ref<const std::string&>());
        }
      } else if (key == "front_image") {
        hasFront = ReadImage(value, "front_image", baseDir_, front);
      } else if (key == "back_image") {
        hasBack = ReadImage(value, "back_image", baseDir_, back);
      } else {
        Bad("unknown key " + Quoted(key));
      }
    }
    if (hasId) {
      auto earlier = idLines_.find(static_cast<int32_t>(id));
      if (earlier != idLines_.end()) {
        Bad("card id " + std::to_string(id) + " is already used on line " + std::to_string(earlier->second));
      }
    }
    int32_t cardId = static_cast<int32_t>(id);
    Status status = hasId ? store_.AddCard(cardId, values, hasFront ? &front : nullptr, hasBack ? &back : nullptr)
                          : store_.AddCardWithNextId(values, hasFront ? &front : nullptr,
                                                     hasBack ? &back : nullptr, cardId);
    if (status != 0) {
      std::string error = store_.GetLastError();
      if (status == CSqliteCardStore::kStatusBadArgument && error.find("already exists") != std::string::npos) {
        Bad("card id " + std::to_string(cardId) + " already exists in the database");
      }
      // The store's text reads "AddCard: <reason>"; the reason is what matters here.
      if (auto pos = error.find(": "); pos != std::string::npos) error = error.substr(pos + 2);
      Bad(error);
    }
    idLines_.emplace(cardId, lineNumber);
    ++counts.cards;
    counts.images += (hasFront ? 1 : 0) + (hasBack ? 1 : 0);
  }

  CSqliteCardStore& store_;
  std::filesystem::path baseDir_;
  bool sawCard_ = false;
  bool sawDatabase_ = false;
  std::unordered_map<int32_t, int64_t> idLines_;
};

}  // namespace

Counts Import(CSqliteCardStore& store, std::istream& in, const std::filesystem::path& baseDir,
              const std::string& sourceName) {
  if (store.BeginUpdate() != 0) RaiseTrap("cannot import into '" + store.Path() + "': " + store.GetLastError());
  Importer importer(store, baseDir);
  int64_t lineNumber = 0;
  try {
    std::string line;
    while (std::getline(in, line)) {
      ++lineNumber;
      if (lineNumber == 1 && line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);  // byte order mark
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      importer.Line(lineNumber, line);
    }
    if (in.bad()) Bad("read error");
  } catch (const LineError& e) {
    store.AbortUpdate();
    RaiseTrap(sourceName + ", line " + std::to_string(lineNumber) + ": " + e.message);
  } catch (...) {
    store.AbortUpdate();
    throw;
  }
  if (store.CommitUpdate() != 0) {
    std::string error = store.GetLastError();
    store.AbortUpdate();
    RaiseTrap("cannot import " + sourceName + ": " + error);
  }
  return importer.counts;
}

Counts ImportFile(CSqliteCardStore& store, const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) RaiseTrap("cannot open '" + path.string() + "'");
  std::string name(1, '\'');
  name.append(path.string()).push_back('\'');
  return Import(store, in, path.parent_path(), name);
}

}  // namespace ombrel::jsonl
