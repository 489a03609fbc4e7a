// Import of .jsonl card files: one transaction for the whole file, so a bad
// line anywhere leaves the database exactly as it was.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>

#include "ombrel/cardstore/ccardstoremgr.h"
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

std::string Shortened(const std::string& text) { return Quoted(text.size() > 60 ? text.substr(0, 60) + "..." : text); }

// A file named as an image: a regular file (a device, a pipe or a folder
// would never end, or never begin) of at most kMaxImageBytes.
void ReadImageFile(const std::filesystem::path& path, const std::string& text, const char* key,
                   std::vector<uint8_t>& bytes) {
  const std::string named = std::string(key) + " " + Shortened(text);
  // Not blocking: opening a pipe for reading would wait for a writer.
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) Bad("cannot read " + named + ": " + std::strerror(errno));
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  struct stat st {};
  if (::fstat(fd, &st) != 0) Bad("cannot read " + named + ": " + std::strerror(errno));
  if (!S_ISREG(st.st_mode)) Bad(named + " is not a regular file");
  if (static_cast<uint64_t>(st.st_size) > kMaxImageBytes) Bad(named + " is larger than 50 MB");
  bytes.resize(static_cast<size_t>(st.st_size));
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::read(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) Bad("cannot read " + named + ": " + std::strerror(errno));
    if (n == 0) break;  // shrunk meanwhile: what is there is checked as the image
    done += static_cast<size_t>(n);
  }
  bytes.resize(done);
}

// An image reference: a data: URI or a path relative to the .jsonl file.
// Either way the image must decode.
void ReadImage(const std::string& text, const char* key, const std::filesystem::path& baseDir, StoredImage& image) {
  if (text.rfind("data:", 0) == 0) {
    auto comma = text.find(',');
    if (comma == std::string::npos || text.substr(0, comma).find(";base64") == std::string::npos) {
      Bad(Quoted(key) + " is a data: URI without base64 data");
    }
    if ((text.size() - comma - 1) / 4 * 3 > kMaxImageBytes) Bad(Quoted(key) + " holds an image larger than 50 MB");
    if (!DecodeBase64(std::string_view(text).substr(comma + 1), image.bytes)) {
      Bad(Quoted(key) + " holds invalid base64");
    }
  } else {
    ReadImageFile(baseDir / std::filesystem::u8path(text), text, key, image.bytes);
  }
  const std::string why = ImageRegistry::CheckDecodes(image.bytes, image.format);
  if (!why.empty()) Bad(std::string(key) + " " + Shortened(text) + " cannot be imported: " + why);
}

// A card's values by their canonical names, read as the search reads a
// stored card: the reader prepares the names it reads card after card, and
// each card's values are put at their places in that list. The last name
// read is the one a failure concerns.
class LineValues final : public ICardValues {
 public:
  // The card's values, their names canonical; values must stay while shown.
  void Show(const std::vector<std::pair<const std::string*, std::string_view>>& values) {
    shown_ = &values;
    Place();
  }
  const std::string& LastAsked() const { return lastAsked_; }

  std::string Get(std::string_view name) const override {
    std::string value;
    Read(name, value);
    return value;
  }
  void Read(std::string_view name, std::string& value) const override {
    lastAsked_.assign(name);
    auto it = position_.find(name);
    if (it != position_.end()) return value.assign(views_[it->second]), void();
    value.clear();
    for (const auto& [other, text] : others_)
      if (other == name) value.assign(text);
  }
  uint64_t Prepare(std::span<const std::string> names) const override {
    names_.assign(names.begin(), names.end());
    position_.clear();
    for (size_t k = 0; k < names_.size(); ++k) position_.emplace(names_[k], k);
    views_.assign(names_.size(), {});
    Place();
    return ++ticket_;
  }
  bool IsPrepared(uint64_t ticket) const override { return ticket != 0 && ticket == ticket_; }
  void ReadPrepared(size_t k, std::string& value) const override { value.assign(ViewPrepared(k)); }
  bool ViewsPrepared() const override { return true; }
  std::string_view ViewPrepared(size_t k) const override {
    lastAsked_.assign(names_[k]);
    return views_[k];
  }

 private:
  struct Hash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
  };
  mutable std::vector<std::string> names_;
  mutable std::unordered_map<std::string, size_t, Hash, std::equal_to<>> position_;
  mutable std::vector<std::string_view> views_;
  // Each value of the card shown at its place in the prepared list, or
  // among the others.
  void Place() const {
    std::fill(views_.begin(), views_.end(), std::string_view());
    others_.clear();
    if (!shown_) return;
    for (const auto& [name, text] : *shown_) {
      auto it = position_.find(*name);
      if (it != position_.end()) views_[it->second] = text;
      else others_.emplace_back(*name, text);
    }
  }

  mutable uint64_t ticket_ = 0;
  const std::vector<std::pair<const std::string*, std::string_view>>* shown_ = nullptr;
  mutable std::vector<std::pair<std::string_view, std::string_view>> others_;  // values the reader never prepared
  mutable std::string lastAsked_;
};

struct CardLine {
  bool hasId = false;
  int64_t id = 0;
  CardValueList values;
  std::optional<std::string> front, back;  // image references; null and absent are alike
};

// Reads a card line straight into a CardLine: card lines are almost the
// whole file, and building a DOM for each would cost most of the import.
// Stops (answering false) at the first thing that is wrong, leaving the
// reason in error, or at a "database" key, which the DOM path handles.
class CardReader : public nlohmann::json_sax<Json> {
 public:
  explicit CardReader(CardLine& card) : card_(card) {}
  std::string error;
  bool databaseLine = false;

  bool null() override {
    if (depth_ == 2) return true;  // a value given as null is absent
    if (depth_ == 1 && (key_ == Key::kFront || key_ == Key::kBack)) return true;
    return Unexpected();
  }
  bool boolean(bool) override { return Unexpected(); }
  bool number_float(number_float_t, const string_t&) override { return Unexpected(); }
  bool binary(binary_t&) override { return Unexpected(); }
  bool number_integer(number_integer_t v) override { return Id(v, std::to_string(v)); }
  bool number_unsigned(number_unsigned_t v) override {
    auto clamped = v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) ? std::numeric_limits<int64_t>::max()
                                                                                  : static_cast<int64_t>(v);
    return Id(clamped, std::to_string(v));
  }
  bool string(string_t& v) override {
    if (depth_ == 2) {
      card_.values.emplace_back(std::move(name_), std::move(v));
      return true;
    }
    if (depth_ == 1 && key_ == Key::kFront) return card_.front = std::move(v), true;
    if (depth_ == 1 && key_ == Key::kBack) return card_.back = std::move(v), true;
    return Unexpected();
  }
  bool start_object(std::size_t) override {
    if (depth_ == 0 || (depth_ == 1 && key_ == Key::kValues)) return ++depth_, true;
    return Unexpected();
  }
  bool end_object() override { return --depth_, true; }
  bool start_array(std::size_t) override { return Unexpected(); }
  bool end_array() override { return true; }
  bool key(string_t& k) override {
    if (depth_ == 2) {
      name_ = std::move(k);
      return true;
    }
    static constexpr std::pair<std::string_view, Key> kKeys[] = {
        {"id", Key::kId}, {"values", Key::kValues}, {"front_image", Key::kFront}, {"back_image", Key::kBack}};
    for (auto [name, key] : kKeys) {
      if (k != name) continue;
      unsigned bit = 1u << static_cast<int>(key);
      if (seen_ & bit) return Fail("key " + Quoted(k) + " is given twice");
      seen_ |= bit;
      key_ = key;
      return true;
    }
    if (k == "database") {
      databaseLine = true;
      return false;
    }
    return Fail("unknown key " + Quoted(k));
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception& e) override {
    std::string what = e.what();
    // Keep the parser's explanation, not its exception tag.
    if (auto pos = what.find("] "); pos != std::string::npos) what = what.substr(pos + 2);
    return Fail("malformed JSON: " + what);
  }

 private:
  enum class Key { kId, kValues, kFront, kBack };

  bool Fail(std::string message) {
    error = std::move(message);
    return false;
  }
  bool Id(int64_t id, const std::string& text) {
    if (depth_ != 1 || key_ != Key::kId) return Unexpected();
    if (id < 1 || id > std::numeric_limits<int32_t>::max()) {
      return Fail("card id " + text + " is out of range (1 to 2147483647)");
    }
    card_.id = id;
    card_.hasId = true;
    return true;
  }
  bool Unexpected() {
    if (depth_ == 0) return Fail("a line must be a JSON object");
    if (depth_ == 2) return Fail("value " + Quoted(name_) + " must be a string");
    switch (key_) {
      case Key::kId:
        return Fail("\"id\" must be an integer");
      case Key::kValues:
        return Fail("\"values\" must be an object");
      case Key::kFront:
        return Fail("\"front_image\" must be a string or null");
      case Key::kBack:
        return Fail("\"back_image\" must be a string or null");
    }
    return false;
  }

  CardLine& card_;
  int depth_ = 0;
  Key key_ = Key::kId;
  unsigned seen_ = 0;
  std::string name_;
};

class Importer {
 public:
  Importer(CSqliteCardStore& store, const std::filesystem::path& baseDir) : store_(store), baseDir_(baseDir) {
    ReadCustomFields();
  }

  void Line(int64_t lineNumber, const std::string& text) {
    CardLine card;
    CardReader reader(card);
    if (Json::sax_parse(text, &reader)) return Card(lineNumber, card);
    if (!reader.databaseLine) Bad(reader.error);
    Json j = Json::parse(text, nullptr, false);
    if (j.is_discarded()) Bad("malformed JSON");
    if (j.size() != 1) Bad("the database line holds only \"database\"");
    if (sawCard_ || sawDatabase_) Bad("the database line must be the first line");
    sawDatabase_ = true;
    ApplyDatabaseLine(store_, j["database"]);
    ReadCustomFields();
  }

  Counts counts;

 private:
  void Card(int64_t lineNumber, CardLine& line) {
    sawCard_ = true;
    StoredImage front, back;
    if (line.front) ReadImage(*line.front, "front_image", baseDir_, front);
    if (line.back) ReadImage(*line.back, "back_image", baseDir_, back);
    if (line.hasId) {
      auto earlier = idLines_.find(static_cast<int32_t>(line.id));
      if (earlier != idLines_.end()) {
        Bad("card id " + std::to_string(line.id) + " is already used on line " + std::to_string(earlier->second));
      }
    }
    auto cardId = static_cast<int32_t>(line.id);
    const StoredImage* f = line.front ? &front : nullptr;
    const StoredImage* b = line.back ? &back : nullptr;
    Status status =
        line.hasId ? store_.AddCard(cardId, line.values, f, b) : store_.AddCardWithNextId(line.values, f, b, cardId);
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
    CheckReadable(cardId, line.values);
    ++counts.cards;
    counts.images += (f ? 1 : 0) + (b ? 1 : 0);
  }

  void ReadCustomFields() {
    if (store_.GetCustomFields(customFields_) != 0) Bad(store_.GetLastError());
    canonical_.clear();  // the fields decide which names there are
  }

  // The card must read as the search will read it: through the very reading
  // of the card store manager, so that no card imported can stop a search.
  void CheckReadable(int32_t cardId, const CardValueList& values) {
    named_.clear();
    for (const auto& [name, text] : values) {
      auto it = canonical_.find(name);
      if (it == canonical_.end()) {
        std::string canonical;
        if (store_.CanonicalValueName(name, canonical) != 0) Bad(store_.GetLastError());
        it = canonical_.emplace(name, std::move(canonical)).first;
      }
      named_.emplace_back(&it->second, text);
    }
    lineValues_.Show(named_);
    try {
      reader_.ReadCard(cardId, customFields_, lineValues_);
    } catch (const Error& e) {
      // The rule's own message is the last line of the reader's.
      std::string reason = e.Description();
      if (auto pos = reason.rfind("\r\n"); pos != std::string::npos) reason.erase(0, pos + 2);
      Bad("card " + std::to_string(cardId) + ", value " + Quoted(lineValues_.LastAsked()) + ": " + reason);
    }
  }

  CSqliteCardStore& store_;
  std::filesystem::path baseDir_;
  bool sawCard_ = false;
  bool sawDatabase_ = false;
  std::unordered_map<int32_t, int64_t> idLines_;
  std::string customFields_;
  CCardStoreMgr reader_;  // reads values handed to it; never given a store
  LineValues lineValues_;
  // Value names as the file spells them -> canonical (they repeat from card to card).
  std::unordered_map<std::string, std::string> canonical_;
  std::vector<std::pair<const std::string*, std::string_view>> named_;
};

// Reads lines of at most kMaxLineBytes: a file without line breaks (a
// device, a damaged file) is refused instead of read until memory runs out.
class LineReader {
 public:
  explicit LineReader(std::istream& in) : in_(in) {}

  bool Next(std::string& line) {
    line.clear();
    for (;;) {
      if (at_ == end_ && !Fill()) return !line.empty();
      const char* start = buffer_.data() + at_;
      const void* nl = std::memchr(start, '\n', end_ - at_);
      const size_t take = nl ? static_cast<const char*>(nl) - start : end_ - at_;
      if (line.size() + take > kMaxLineBytes) Bad("the line is longer than " + std::to_string(kMaxLineBytes >> 20) + " MB");
      line.append(start, take);
      at_ += take;
      if (nl) {
        ++at_;
        return true;
      }
    }
  }

 private:
  bool Fill() {
    try {
      in_.read(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    } catch (const std::exception& e) {
      Bad(std::string("read error: ") + e.what());
    }
    if (in_.bad()) Bad("read error");
    at_ = 0;
    end_ = static_cast<size_t>(in_.gcount());
    return end_ > 0;
  }

  std::istream& in_;
  std::vector<char> buffer_ = std::vector<char>(1 << 20);
  size_t at_ = 0, end_ = 0;
};

}  // namespace

Counts Import(CSqliteCardStore& store, std::istream& in, const std::filesystem::path& baseDir,
              const std::string& sourceName, const std::function<bool()>& stop) {
  if (store.BeginUpdate() != 0) RaiseTrap("cannot import into '" + store.Path() + "': " + store.GetLastError());
  Importer importer(store, baseDir);
  int64_t lineNumber = 0;
  try {
    std::string line;
    LineReader reader(in);
    while ((++lineNumber, reader.Next(line))) {
      if (lineNumber == 1 && line.rfind("\xEF\xBB\xBF", 0) == 0) line.erase(0, 3);  // byte order mark
      if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
      importer.Line(lineNumber, line);
      if (stop && stop()) RaiseTrap(std::string(kStoppedMessage));
    }
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

Counts ImportFile(CSqliteCardStore& store, const std::filesystem::path& path, const std::function<bool()>& stop) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) RaiseTrap("cannot import '" + path.string() + "': it is a folder");
  std::ifstream in(path, std::ios::binary);
  if (!in) RaiseTrap("cannot open '" + path.string() + "'");
  std::string name(1, '\'');
  name.append(path.string()).push_back('\'');
  return Import(store, in, path.parent_path(), name, stop);
}

}  // namespace ombrel::jsonl
