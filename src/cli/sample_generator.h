// The demo-database generator behind `ombrel sample`: realistic business
// cards with OCR geometry and confidence data, and duplicates of the three
// kinds the wizard looks for. Deterministic for a seed (and a measure).
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "ombrel/cardstore/sqlite_card_store.h"

namespace ombrel::cli::sample {

inline constexpr int kCardWidth = 700;
inline constexpr int kCardHeight = 400;

struct FontStyle {
  int pixelSize = 16;
  bool bold = false;
  bool italic = false;
};

struct TextBox {
  int width = 0;
  int height = 0;
  int ascent = 0;  // baseline below the box's top
};

// Measures text as the renderer will draw it, so that the ".Rectangle"
// values are where the text is on the image.
class TextMeasure {
 public:
  virtual ~TextMeasure() = default;
  virtual TextBox Measure(const std::string& text, const FontStyle& font) = 0;
};

// Width from the character count: for cards that are never drawn.
class EstimatedMeasure : public TextMeasure {
 public:
  TextBox Measure(const std::string& text, const FontStyle& font) override;
};

// One text on the card image: drawn with its top-left corner at (left, top).
struct DrawnText {
  std::string field;
  std::string text;
  FontStyle font;
  int left = 0;
  int top = 0;
  TextBox box;
};

class Rand;  // the generator's random numbers

enum class CardKind {
  kOriginal,
  kExactDuplicate,       // a re-scan: identical values
  kCompatibleDuplicate,  // same person, a field the original lacked filled in
  kConflictDuplicate,    // same person, a changed title, misread characters, e-mail case
  kSharedMailbox,        // another first name with the same last name and e-mail
  kNoName,               // a company's own card: no person's name
};
inline constexpr int kCardKinds = 6;

struct SampleCard {
  CardKind kind = CardKind::kOriginal;
  CardValueList values;
  std::vector<DrawnText> drawn;
  uint32_t accent = 0;  // 0xRRGGBB of the card's design
  std::string logo;     // initials in the logo block
  int rule = 180;       // the line under the header
};

class SampleGenerator {
 public:
  SampleGenerator(uint64_t seed, TextMeasure& measure);
  SampleCard Next();

  static std::vector<CustomFieldDef> CustomFields();
  static std::vector<std::string> Categories();

  struct Contact;

 private:
  Contact MakeContact(uint64_t index) const;
  // A company's own card, without a person (an index space of its own).
  Contact MakeCompanyCard(uint64_t index) const;
  // A re-scan of a card made before: an exact copy, one with a field or two
  // filled in, or one misread (and, for a person, with a new title).
  SampleCard Rescan(Contact c, Rand& r, bool person);
  SampleCard Lay(const Contact& c, CardKind kind);

  uint64_t seed_;
  TextMeasure& measure_;
  std::mt19937_64 rng_;
  uint64_t originals_ = 0;  // contacts made so far; duplicates pick among them
  uint64_t companyCards_ = 0;  // the same for company cards
};

}  // namespace ombrel::cli::sample
