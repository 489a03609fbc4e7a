// Makes the cards of the demo database. Every original contact is a pure
// function of (seed, its index), so a duplicate is made by building the
// contact again and changing it, without keeping a million contacts around.
#include "cli/sample_generator.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <unordered_map>

#include "cli/sample_pools.h"
#include "ombrel/cards/field_catalogue.h"

namespace ombrel::cli::sample {

namespace {

// Shares of the cards, in per mille.
constexpr int kDuplicatePerMille = 170;  // exact, compatible or conflicting copies
constexpr int kSharedMailboxPerMille = 3;
// A company's own card, without a person: about one card in twenty, as in
// the databases users keep. Of those, kDuplicatePerMille are re-scans of an
// earlier one.
constexpr int kCompanyCardPerMille = 50;
constexpr uint64_t kFirstDuplicateAfter = 20;  // originals needed before copies start
// Company cards are made in an index space of their own, so that person
// duplicates never copy them.
constexpr uint64_t kCompanySpace = uint64_t{1} << 63;

uint64_t Mix(uint64_t x) {
  x += 0x9E3779B97F4A7C15ULL;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
  return x ^ (x >> 31);
}

// Lower-case ASCII spelling for e-mail addresses and domains.
std::string Fold(std::string_view s) {
  static constexpr std::pair<std::string_view, std::string_view> kMap[] = {
      {"ä", "ae"}, {"ö", "oe"}, {"ü", "ue"}, {"Ä", "ae"}, {"Ö", "oe"}, {"Ü", "ue"}, {"ß", "ss"}, {"é", "e"},
      {"è", "e"},  {"ê", "e"},  {"ë", "e"},  {"É", "e"},  {"á", "a"},  {"à", "a"},  {"â", "a"},  {"å", "a"},
      {"Å", "a"},  {"æ", "ae"}, {"í", "i"},  {"ì", "i"},  {"î", "i"},  {"ï", "i"},  {"ı", "i"},  {"ó", "o"},
      {"ò", "o"},  {"ô", "o"},  {"õ", "o"},  {"ø", "o"},  {"Ó", "o"},  {"ú", "u"},  {"ù", "u"},  {"û", "u"},
      {"ñ", "n"},  {"ń", "n"},  {"ç", "c"},  {"Ç", "c"},  {"ć", "c"},  {"č", "c"},  {"ł", "l"},  {"Ł", "l"},
      {"ś", "s"},  {"š", "s"},  {"Š", "s"},  {"ş", "s"},  {"ź", "z"},  {"ż", "z"},  {"ž", "z"},  {"ą", "a"},
      {"ę", "e"},  {"ř", "r"},  {"ý", "y"},  {"ğ", "g"},  {"ő", "o"},  {"ű", "u"},  {"Č", "c"},  {"Á", "a"},
      {"ě", "e"},  {"ů", "u"},  {"Ž", "z"},  {"Ř", "r"},  {"Ö", "o"},  {"Ø", "o"},  {"Ś", "s"},  {"Ż", "z"}};
  std::string out;
  for (size_t i = 0; i < s.size();) {
    auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      if (std::isalnum(c)) out += static_cast<char>(std::tolower(c));
      ++i;
      continue;
    }
    bool mapped = false;
    for (auto [from, to] : kMap) {
      if (s.substr(i, from.size()) == from) {
        out += to;
        i += from.size();
        mapped = true;
        break;
      }
    }
    if (!mapped) {  // skip an unmapped code point
      ++i;
      while (i < s.size() && (static_cast<unsigned char>(s[i]) & 0xC0) == 0x80) ++i;
    }
  }
  return out;
}

std::string Replace(std::string s, std::string_view what, std::string_view with) {
  auto pos = s.find(what);
  if (pos != std::string::npos) s.replace(pos, what.size(), with);
  return s;
}

std::string TwoDigits(int n) {
  std::string s = std::to_string(n);
  if (s.size() < 2) s.insert(s.begin(), '0');
  return s;
}

struct Field {
  std::string name;
  std::string text;
  std::string label;
  int ocr = 100;
  int cat = 100;
  bool ocrSuspect = false;
  bool catSuspect = false;
};

constexpr std::array<std::string_view, 4> kCustomNames = {"Nickname", "Birthday", "Account Manager", "Import Batch"};

// Position of a field on the card: the catalogue order, custom fields after.
int Rank(std::string_view name) {
  static const auto ranks = [] {
    std::unordered_map<std::string_view, int> r;
    for (auto n : kStandardFieldNames) r.emplace(n, static_cast<int>(r.size()));
    for (auto n : kCustomNames) r.emplace(n, static_cast<int>(r.size()));
    return r;
  }();
  auto it = ranks.find(name);
  return it == ranks.end() ? 1000 : it->second;
}

constexpr uint32_t kAccents[] = {0x1F4E79, 0x7A1F3D, 0x2E7D32, 0xB85C00, 0x4A148C, 0x00695C,
                                 0x37474F, 0xAD1457, 0x283593, 0x5D4037, 0x00838F, 0x827717};

}  // namespace

// SplitMix64: seeding is free, which matters with a fresh stream per contact.
class Rand {
 public:
  explicit Rand(uint64_t seed) : state_(seed) {}
  explicit Rand(std::mt19937_64& shared) : state_(shared()) {}
  uint64_t Next() { return Mix(state_++); }
  int Below(int n) { return static_cast<int>(Next() % static_cast<uint64_t>(n)); }
  int Between(int lo, int hi) { return lo + Below(hi - lo + 1); }
  bool Chance(int perMille) { return Below(1000) < perMille; }
  std::string Pick(Pool pool) { return std::string(pool[Below(static_cast<int>(pool.size()))]); }
  std::string Digits(std::string_view pattern) {
    std::string out;
    for (char c : pattern) out += c == '#' ? static_cast<char>('0' + Below(10)) : c;
    return out;
  }

 private:
  uint64_t state_;
};

struct SampleGenerator::Contact {
  std::string first, last, name;
  std::string domain;  // of the company's e-mail addresses and web page
  std::vector<Field> fields;  // sorted by Rank
  int certainty = 100;
  uint32_t accent = 0;
  std::string logo;
  int dx = 0, dy = 0;  // where the scan put the card

  Field* Find(std::string_view n) {
    for (auto& f : fields) {
      if (f.name == n) return &f;
    }
    return nullptr;
  }
  const Field* Find(std::string_view n) const { return const_cast<Contact*>(this)->Find(n); }
  std::string Text(std::string_view n) {
    Field* f = Find(n);
    return f ? f->text : std::string();
  }
  Field& Set(std::string_view n, std::string text, std::string label = {}) {
    if (Field* f = Find(n)) {
      f->text = std::move(text);
      f->label = std::move(label);
      return *f;
    }
    Field f{std::string(n), std::move(text), std::move(label)};
    auto at = std::find_if(fields.begin(), fields.end(), [&](const Field& g) { return Rank(g.name) > Rank(n); });
    return *fields.insert(at, std::move(f));
  }
  void Remove(std::string_view n) {
    std::erase_if(fields, [&](const Field& f) { return f.name == n; });
  }
  // The first of "<kind> 1".."<kind> max" still empty, or "" when all are used.
  std::string FreeExtra(const char* kind, int max) {
    for (int i = 1; i <= max; ++i) {
      std::string n = std::string(kind) + " " + std::to_string(i);
      if (!Find(n)) return n;
    }
    return {};
  }
};

TextBox EstimatedMeasure::Measure(const std::string& text, const FontStyle& font) {
  int chars = 0;
  for (char c : text) chars += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  double perChar = font.bold ? 0.62 : 0.55;
  return {static_cast<int>(std::lround(chars * font.pixelSize * perChar)),
          static_cast<int>(std::lround(font.pixelSize * 1.2)), static_cast<int>(std::lround(font.pixelSize * 0.95))};
}

std::vector<CustomFieldDef> SampleGenerator::CustomFields() {
  return {{"Nickname", "TEXT", "VISIBLE", "READWRITE"},
          {"Birthday", "TEXT", "VISIBLE", "READWRITE"},
          {"Account Manager", "TEXT", "VISIBLE", "READONLY"},
          {"Import Batch", "TEXT", "HIDDEN", "READONLY"}};
}

std::vector<std::string> SampleGenerator::Categories() {
  return {"Business", "Customers", "Suppliers", "Press", "Friends", "Family", "VIP", "Trade Fair"};
}

SampleGenerator::SampleGenerator(uint64_t seed, TextMeasure& measure)
    : seed_(seed), measure_(measure), rng_(Mix(seed)) {}

SampleGenerator::Contact SampleGenerator::MakeContact(uint64_t index) const {
  Rand r(Mix(seed_ ^ Mix(index)));
  const Country& country = CountryAt(r.Below(static_cast<int>(CountryCount())));
  Contact c;

  c.first = r.Pick(FirstNames());
  if (r.Chance(8)) {
    c.last = r.Pick(country.realSurnames);
  } else {
    c.last = r.Pick(SurnameStarts());
    if (r.Chance(850)) c.last += r.Pick(SurnameMiddles());
    if (r.Chance(450)) c.last += r.Pick(SurnameMiddles());
    c.last += r.Pick(country.surnameEndings);
  }
  c.name = c.first + " ";
  if (r.Chance(80)) c.name += std::string(1, static_cast<char>('A' + r.Below(26))) + ". ";
  c.name += c.last;
  if (r.Chance(50)) c.name = "Dr. " + c.name;
  c.Set("Name", c.name);

  std::string word = r.Pick(CompanyWords()), trade = r.Pick(CompanyTrades());
  c.Set("Company", word + " " + trade + " " + r.Pick(country.legalForms));
  c.logo = Fold(word.substr(0, 1)) + Fold(trade.substr(0, 1));
  std::transform(c.logo.begin(), c.logo.end(), c.logo.begin(), ::toupper);
  c.domain = Fold(word) + Fold(trade) + "." + std::string(country.tld);
  const std::string& domain = c.domain;
  if (r.Chance(850)) c.Set("Title", r.Pick(Titles()));

  std::string address(country.addressPattern);
  address = Replace(address, "{street}", r.Pick(country.streets));
  address = Replace(address, "{n}", std::to_string(r.Between(1, 180)));
  address = Replace(address, "{zip}", r.Digits(country.zipPattern));
  address = Replace(address, "{city}", r.Pick(country.cities));
  c.Set("Address", r.Digits(address));
  if (r.Chance(150)) c.Set("2nd Address", r.Pick(country.secondAddresses));

  c.Set("Phone", r.Digits(country.phonePattern));
  if (r.Chance(350)) c.Set("Fax", r.Digits(country.phonePattern));
  int extraPhones = r.Chance(250) ? 0 : r.Chance(660) ? 1 : r.Chance(700) ? 2 : 3;
  for (int i = 1; i <= extraPhones; ++i) {
    std::string label = i == 1 && r.Chance(800) ? "Mobile" : r.Pick(PhoneLabels());
    c.Set("Phone " + std::to_string(i), r.Digits(label == "Mobile" ? country.mobilePattern : country.phonePattern),
          label);
  }

  std::string f = Fold(c.first), l = Fold(c.last);
  if (r.Chance(920)) {
    static constexpr const char* kStyles[] = {"%f.%l", "%f.%l", "%i.%l", "%f%l", "%i%l", "%f", "%l.%f"};
    std::string local = kStyles[r.Below(7)];
    local = Replace(local, "%f", f);
    local = Replace(local, "%l", l);
    local = Replace(local, "%i", f.substr(0, 1));
    c.Set("Email", local + "@" + domain);
  }
  if (r.Chance(600)) c.Set("Web Page", "www." + domain);
  int extraMails = r.Chance(650) ? 0 : r.Chance(800) ? 1 : 2;
  for (int i = 1; i <= extraMails; ++i) {
    c.Set("Email " + std::to_string(i), f + l + std::to_string(r.Between(1, 99)) + "@" + r.Pick(MailProviders()),
          r.Pick(EmailLabels()));
  }
  if (r.Chance(50)) c.Set("Other", r.Pick(OtherTexts()));

  c.Set("Verified", r.Chance(350) ? "Yes" : "No");
  if (r.Chance(120)) {
    std::string notes = r.Pick(NoteLines());
    if (r.Chance(400)) notes += "\r\n" + r.Pick(NoteLines());
    c.Set("Notes", notes);
  }
  int categories = r.Chance(300) ? 0 : r.Chance(780) ? 1 : 2;
  if (categories) {
    auto all = Categories();
    int a = r.Below(static_cast<int>(all.size())), b = r.Below(static_cast<int>(all.size()));
    std::string text = all[std::min(a, b)];
    if (categories == 2 && a != b) text += ", " + all[std::max(a, b)];
    c.Set("Categories", text);
  }
  int year = r.Between(2014, 2024), month = r.Between(1, 12), day = r.Between(1, 28);
  std::string created = std::to_string(year) + "-" + TwoDigits(month) + "-" + TwoDigits(day) + " " +
                        TwoDigits(r.Between(8, 18)) + ":" + TwoDigits(r.Below(60));
  c.Set("Creation Date", created);
  c.Set("Modified Date", r.Chance(400) ? created
                                       : std::to_string(std::min(year + r.Between(0, 2), 2025)) + "-" +
                                             TwoDigits(r.Between(1, 12)) + "-" + TwoDigits(r.Between(1, 28)) + " " +
                                             TwoDigits(r.Between(8, 18)) + ":" + TwoDigits(r.Below(60)));
  if (r.Chance(60)) c.Set("Solvane Status", r.Chance(700) ? "Address confirmed" : "Moved, address unknown");
  if (r.Chance(80)) c.Set("Nickname", r.Pick(Nicknames()));
  if (r.Chance(120)) {
    c.Set("Birthday", std::to_string(r.Between(1950, 2000)) + "-" + TwoDigits(r.Between(1, 12)) + "-" +
                          TwoDigits(r.Between(1, 28)));
  }
  if (r.Chance(250)) c.Set("Account Manager", r.Pick(Staff()));
  c.Set("Import Batch", "batch-" + std::to_string(year) + "-" + std::to_string(r.Between(1, 4)));

  c.certainty = r.Chance(30) ? r.Between(0, 30) : r.Between(45, 100);
  for (auto& fld : c.fields) {
    fld.ocr = r.Chance(100) ? r.Between(55, 79) : r.Between(80, 100);
    fld.cat = r.Between(75, 100);
    fld.ocrSuspect = fld.ocr < 80;
    fld.catSuspect = r.Chance(40);
  }
  c.accent = kAccents[r.Below(12)];
  c.dx = r.Between(-6, 6);
  c.dy = r.Between(-6, 6);
  return c;
}

SampleGenerator::Contact SampleGenerator::MakeCompanyCard(uint64_t index) const {
  // Reception desks, shop counters, trade-fair stands: a company and no
  // person. Namesake companies (the same words, another town) end up with
  // the same generic mailbox, as they do in scanned databases.
  Contact c = MakeContact(index | kCompanySpace);
  c.first.clear();
  c.last.clear();
  c.name.clear();
  for (const char* n : {"Name", "Title", "Phone 1", "Phone 2", "Phone 3", "Email 1", "Email 2", "Nickname", "Birthday"})
    c.Remove(n);
  Rand r(Mix(seed_ ^ Mix(index) ^ 0xC0C0ULL));
  if (r.Chance(167)) {  // a sixth have no e-mail at all
    c.Remove("Email");
  } else {
    uint64_t h = 0xCBF29CE484222325ULL;  // FNV-1a: one mailbox per domain
    for (char ch : c.domain) h = (h ^ static_cast<unsigned char>(ch)) * 0x100000001B3ULL;
    const Pool boxes = GenericMailboxes();
    c.Set("Email", std::string(boxes[h % boxes.size()]) + "@" + c.domain);
  }
  return c;
}

SampleCard SampleGenerator::Rescan(Contact c, Rand& r, bool person) {
  int kind = r.Below(10);
  if (kind < 4) return Lay(c, CardKind::kExactDuplicate);

  // A later scan of the same card: new dates and certainty either way.
  c.Set("Creation Date", "2025-0" + std::to_string(r.Between(1, 9)) + "-" + TwoDigits(r.Between(10, 28)) +
                             " 10:" + TwoDigits(r.Below(60)));
  c.Set("Modified Date", c.Text("Creation Date"));
  c.certainty = r.Between(40, 100);
  if (kind < 7) {
    // Fill in one or two fields the original lacked; change nothing else.
    std::vector<std::string> free;
    for (const char* n : {"Fax", "2nd Address", "Web Page", "Other", "Nickname", "Birthday"}) {
      if (!c.Find(n) && (person || (std::string_view(n) != "Nickname" && std::string_view(n) != "Birthday")))
        free.emplace_back(n);
    }
    if (person) {
      if (auto p = c.FreeExtra("Phone", 3); !p.empty()) free.push_back(p);
      if (auto e = c.FreeExtra("Email", 2); !e.empty() && c.Find("Email")) free.push_back(e);
    }
    int adds = std::min<int>(static_cast<int>(free.size()), 1 + r.Below(2));
    for (int i = 0; i < adds; ++i) {
      std::string n = free[r.Below(static_cast<int>(free.size()))];
      if (c.Find(n)) continue;
      if (n == "Fax" || n.rfind("Phone", 0) == 0) {
        c.Set(n, r.Digits("+" + std::to_string(r.Between(30, 49)) + " ## ### ####"),
              n == "Fax" ? "" : r.Pick(PhoneLabels()));
      } else if (n == "2nd Address") {
        c.Set(n, "P.O. Box " + std::to_string(r.Between(100, 9999)));
      } else if (n == "Web Page") {
        std::string mail = c.Text("Email");
        c.Set(n, "www." + (mail.empty() ? Fold(c.Text("Company")) + ".com" : mail.substr(mail.find('@') + 1)));
      } else if (n == "Other") {
        c.Set(n, r.Pick(OtherTexts()));
      } else if (n == "Nickname") {
        c.Set(n, r.Pick(Nicknames()));
      } else if (n == "Birthday") {
        c.Set(n, std::to_string(r.Between(1950, 2000)) + "-0" + std::to_string(r.Between(1, 9)) + "-1" +
                     std::to_string(r.Below(10)));
      } else {
        c.Set(n, Fold(c.first) + std::to_string(r.Between(100, 999)) + "@" + r.Pick(MailProviders()),
              r.Pick(EmailLabels()));
      }
      Field* added = c.Find(n);
      added->ocr = r.Between(80, 100);
      added->cat = r.Between(75, 100);
    }
    return Lay(c, CardKind::kCompatibleDuplicate);
  }

  // Conflicting: the person moved on, and the scan misread a few letters.
  if (person) {
    std::string title = c.Text("Title");
    std::string newTitle;
    do newTitle = r.Pick(Titles());
    while (newTitle == title);
    c.Set("Title", newTitle);
  }
  std::vector<std::string> readable;
  for (const char* n : {"Company", "Address", "Phone"}) {
    if (c.Find(n)) readable.emplace_back(n);
  }
  Field* misread = c.Find(readable[r.Below(static_cast<int>(readable.size()))]);
  static constexpr std::pair<std::string_view, std::string_view> kConfusions[] = {
      {"o", "0"}, {"0", "o"}, {"l", "1"}, {"1", "l"}, {"rn", "m"}, {"m", "rn"}, {"S", "5"}, {"5", "S"},
      {"B", "8"}, {"8", "B"}, {"e", "c"}, {"a", "o"}, {"i", "l"},  {"6", "b"},  {"n", "h"}, {"t", "f"}};
  std::string text = misread->text;
  for (int tries = 0; tries < 40 && text == misread->text; ++tries) {
    auto [from, to] = kConfusions[r.Below(16)];
    auto pos = text.find(from, r.Below(static_cast<int>(text.size())));
    if (pos != std::string::npos) text.replace(pos, from.size(), to);
  }
  if (text == misread->text) text += " .";  // a speck read as a character
  misread->text = text;
  misread->ocr = r.Between(45, 75);
  misread->ocrSuspect = true;
  if (Field* mail = c.Find("Email")) {
    std::string& e = mail->text;
    auto at = e.find('@');
    if (r.Chance(500)) {
      std::transform(e.begin() + at, e.end(), e.begin() + at, ::toupper);
    } else {
      std::string before = e;
      for (size_t i = 0; i < at; ++i) {
        if (i == 0 || e[i - 1] == '.') e[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(e[i])));
      }
      if (e == before) std::transform(e.begin(), e.end(), e.begin(), ::toupper);
    }
  }
  return Lay(c, CardKind::kConflictDuplicate);
}

SampleCard SampleGenerator::Next() {
  Rand r(rng_);
  int roll = r.Below(1000);
  bool canCopy = originals_ >= kFirstDuplicateAfter;

  if (canCopy && roll < kDuplicatePerMille)
    return Rescan(MakeContact(static_cast<uint64_t>(r.Next() % originals_)), r, true);

  roll -= kDuplicatePerMille;
  if (canCopy && roll >= 0 && roll < kSharedMailboxPerMille) {
    Contact c = MakeContact(static_cast<uint64_t>(r.Next() % originals_));
    if (c.Find("Email")) {
      // A colleague or relative on the same business address.
      std::string first;
      do first = r.Pick(FirstNames());
      while (first == c.first);
      c.name = Replace(c.name, c.first, first);
      c.first = first;
      c.Set("Name", c.name);
      c.Set("Title", r.Pick(Titles()));
      c.Remove("Phone 1");
      c.Remove("Email 1");
      c.Remove("Nickname");
      c.Remove("Birthday");
      return Lay(c, CardKind::kSharedMailbox);
    }
  }
  roll -= kSharedMailboxPerMille;
  if (roll >= 0 && roll < kCompanyCardPerMille) {
    if (companyCards_ >= kFirstDuplicateAfter && r.Below(1000) < kDuplicatePerMille)
      return Rescan(MakeCompanyCard(static_cast<uint64_t>(r.Next() % companyCards_)), r, false);
    return Lay(MakeCompanyCard(companyCards_++), CardKind::kNoName);
  }
  return Lay(MakeContact(originals_++), CardKind::kOriginal);
}

SampleCard SampleGenerator::Lay(const Contact& c, CardKind kind) {
  SampleCard card;
  card.kind = kind;
  card.accent = c.accent;
  card.logo = c.logo;
  card.rule = 180 + c.dy;

  // Where each drawn field goes: header lines, then two columns.
  struct Slot {
    int left, top, maxWidth;
    FontStyle font;
    std::string prefix;  // a small caption drawn before the text (phone kinds)
  };
  std::vector<std::pair<std::string, Slot>> slots;
  const int x = 40 + c.dx, y = c.dy;
  slots.push_back({"Company", {x, 30 + y, 480, {24, true, false}, {}}});
  slots.push_back({"Name", {x, 92 + y, 620, {30, true, false}, {}}});
  slots.push_back({"Title", {x, 134 + y, 620, {18, false, true}, {}}});
  int left = 0, right = 0;
  for (const char* n : {"Address", "2nd Address", "Email", "Web Page", "Email 1", "Email 2", "Other"}) {
    if (c.Find(n)) slots.push_back({n, {x, 196 + y + 24 * left++, 320, {15, false, false}, {}}});
  }
  for (const char* n : {"Phone", "Fax", "Phone 1", "Phone 2", "Phone 3"}) {
    const Field* f = c.Find(n);
    if (!f) continue;
    std::string caption = std::string(n) == "Phone" ? "Tel." : std::string(n) == "Fax" ? "Fax" : f->label;
    slots.push_back({n, {x + 412, 196 + y + 24 * right++, 220, {15, false, false}, caption}});
  }

  auto geometry = [&](const Field& f) -> const DrawnText* {
    for (const auto& d : card.drawn) {
      if (d.field == f.name) return &d;
    }
    return nullptr;
  };
  for (const auto& [name, slot] : slots) {
    const Field* f = c.Find(name);
    if (!f || f->text.empty()) continue;
    DrawnText d{name, f->text, slot.font, slot.left, slot.top, {}};
    d.box = measure_.Measure(d.text, d.font);
    while (d.box.width > slot.maxWidth && d.font.pixelSize > 8) {
      --d.font.pixelSize;
      d.box = measure_.Measure(d.text, d.font);
    }
    if (!slot.prefix.empty()) {
      FontStyle small{11, false, false};
      card.drawn.push_back(
          {"", slot.prefix, small, slot.left - 62, slot.top + 3, measure_.Measure(slot.prefix, small)});
    }
    card.drawn.push_back(std::move(d));
  }

  auto& v = card.values;
  v.reserve(64);
  for (const Field& f : c.fields) {
    v.emplace_back(f.name, f.text);
    if (f.name == "Name") {
      v.emplace_back("First Name", c.first);
      v.emplace_back("Last Name", c.last);
    }
    if (!f.label.empty()) v.emplace_back(f.name + ".Label", f.label);
    if (const DrawnText* d = geometry(f)) {
      int r = std::min(d->left + d->box.width, kCardWidth), b = std::min(d->top + d->box.height, kCardHeight);
      v.emplace_back(f.name + ".Rectangle", std::to_string(d->left) + " " + std::to_string(d->top) + " " +
                                                std::to_string(r) + " " + std::to_string(b));
      v.emplace_back(f.name + ".Confidence Levels", std::to_string(f.ocr) + " " + std::to_string(f.cat));
      v.emplace_back(f.name + ".Suspect Info",
                     std::string(f.ocrSuspect ? "1" : "0") + " " + std::string(f.catSuspect ? "1" : "0"));
    }
  }
  v.emplace_back("Certainty", std::to_string(c.certainty));
  return card;
}

}  // namespace ombrel::cli::sample
