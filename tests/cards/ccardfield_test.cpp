#include "ombrel/cards/ccardfield.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ombrel/foundation/error.h"
#include "support/error_text.h"

namespace ombrel {
namespace {

const std::string kLabelRule = "Only additional Email or Phone fields may contain user labels";

TEST(CCardFieldTest, SetDataChecksLabelsAndLevels) {
  struct Case { std::string name, label; int32_t ocr, cat; std::string expected; };
  for (const Case& c : std::vector<Case>{
      {"Title", "", 100, 100, "<no error>"},
      {"Title", "", 101, 100, "OCR confidence level 101 is out of expected range 0-100"},
      {"Title", "", 100, 101, "CAT confidence level 101 is out of expected range 0-100"},
      {"Phone", "Home", 100, 100, kLabelRule},
      {"Fax", "Office", 100, 100, kLabelRule},
      {"Phone 2", "Home", 100, 100, "<no error>"},
      {"Email 6", "Work", 100, 100, "<no error>"},
      {"Email 7", "Work", 100, 100, kLabelRule},
      {"phone 1", "Work", 100, 100, kLabelRule},
      {"Phone", "", 100, 100, "<no error>"},
      // An 8-bit level cannot hold these: the conversion overflows.
      {"Title", "", 256, 100, "Overflow"},
      {"Title", "", 100, -1, "Overflow"},
  }) {
    CCardField field;
    EXPECT_EQ(ErrorText([&] { field.SetData(c.name, "x", c.label, nullptr, c.ocr, c.cat, false, false); }), c.expected)
        << c.name << " label=" << c.label << " ocr=" << c.ocr << " cat=" << c.cat;
  }
}

// The checks come after the steps before them: a failure keeps those steps.
TEST(CCardFieldTest, FailedSetDataOrRenameKeepsEarlierStepsAndOldLevels) {
  CCardField field;
  CRectangle oldRect(1, 2, 3, 4);
  field.SetData("Phone 1", "old", "Work", &oldRect, 40, 50, true, false);
  CRectangle rect(10, 20, 30, 40);
  EXPECT_EQ(ErrorText([&] { field.SetData("Phone 2", "  new ", "Home", &rect, 90, 101, false, true); }),
            "CAT confidence level 101 is out of expected range 0-100");
  EXPECT_EQ(field.ToStr(),
            "FIELD:Phone 2 LABEL:Home TEXT:new RECT:T:10,L:20,W:30,H:40 OCR_CONF:40 CAT_CONF:50 "
            "OCR_SUSP:True CAT_SUSP:False");
  // A renamed field keeps its label, checked right after the name is stored.
  field.SetFieldName("Phone 3");
  EXPECT_EQ(field.Label(), "Home");
  EXPECT_EQ(ErrorText([&] { field.SetFieldName("Phone"); }), kLabelRule);
  EXPECT_EQ(field.Name(), "Phone");
  EXPECT_EQ(ErrorText([&] { field.SetData("Fax", "fax", "Home", nullptr, 100, 100, false, false); }), kLabelRule);
  EXPECT_EQ(field.Name() + "|" + field.Text(), "Fax|new");
  field.SetData("Phone 2", "555", "", nullptr, 100, 100, false, false);
  EXPECT_EQ(ErrorText([&] { field.SetFieldName("Phone"); }), "<no error>");
}

TEST(CCardFieldTest, EmptyTextAndAreaLessRectanglesMeanNone) {
  CCardField field;
  field.SetFieldName("Title");
  field.SetText(" \t x y \r\n");
  EXPECT_EQ(field.GetText().Value(), "x y");
  field.SetText("   ");
  EXPECT_FALSE(field.HasText());
  EXPECT_EQ(field.GetText().Value(), "");

  CRectangle kept(5, 6, 1, 1);
  for (const CRectangle& rect : {CRectangle(5, 6, 0, 10), CRectangle(5, 6, 10, 0)}) {
    field.SetRect(&kept);
    field.SetRect(&rect);
    EXPECT_FALSE(field.HasRect()) << rect.ToStr();
    EXPECT_EQ(field.GetRect().ToStr(), "T:0,L:0,W:0,H:0");
  }
  field.SetRect(&kept);
  EXPECT_EQ(field.GetRect().ToStr(), "T:5,L:6,W:1,H:1");
  field.SetRect(nullptr);
  EXPECT_FALSE(field.HasRect());
}

TEST(CCardFieldTest, EmptyNameOrCompanyIsAlwaysOcrSuspect) {
  struct Case { std::string name, text; bool flag, suspect; };
  for (const Case& c : std::vector<Case>{{"Name", "", false, true},      {"Company", "", false, true},
                                         {"Title", "", false, false},    {"Name", "Ann", false, false},
                                         {"Company", "Acme", true, true}, {"Title", "CEO", true, true}}) {
    CCardField field;
    field.SetData(c.name, c.text, "", nullptr, 100, 100, c.flag, false);
    EXPECT_EQ(std::to_string(field.IsOcrSuspect()) + std::to_string(field.OcrSuspectFlag()),
              std::to_string(c.suspect) + std::to_string(c.flag))
        << c.name << "/" << c.text;
  }
}

TEST(CCardFieldTest, CopyTakesTheOcrSuspectAnswerAndTheReadOnlyType) {
  CCardField company;
  company.SetData("Company", "", "", nullptr, 70, 60, false, true);
  company.MakeReadOnly();
  auto copy = company.Clone();
  EXPECT_EQ(copy->ToStr(),
            "FIELD:Company TEXT: RECT:T:0,L:0,W:0,H:0 OCR_CONF:70 CAT_CONF:60 OCR_SUSP:True CAT_SUSP:True");
  EXPECT_TRUE(copy->IsReadOnlyType());
  EXPECT_FALSE(company.OcrSuspectFlag());

  CCardField phone;
  CRectangle rect(3, 4, 5, 6);
  phone.SetData("Phone 4", "555 1234", "Mobile", &rect, 12, 34, false, false);
  CCardField target;
  target.MakeReadOnly();
  target.Copy(phone);
  EXPECT_EQ(target.ToStr(), phone.ToStr());
  EXPECT_FALSE(target.IsReadOnlyType());
}

TEST(CCardFieldTest, MergeCategoriesAppendsOnlyNewOnesInTheirOrder) {
  struct Case { std::string current, incoming, merged; };
  for (const Case& c : std::vector<Case>{
      {"", "A", ", A"},  // the kept quirk of merging into an empty field
      {"", "", ""},
      {"A, B", "B", "A, B"},
      {"A, B", "B, C", "A, B, C"},
      {"A, B", "C,D", "A, B, C, D"},
      {"A, B", "b", "A, B, b"},
      {"Clients", "Client", "Clients, Client"},
      {"A", "B, B", "A, B"},
  }) {
    CCardField field;
    field.SetData("Categories", c.current, "", nullptr, 100, 100, false, false);
    field.MergeCategories(c.incoming);
    EXPECT_EQ(field.Text(), c.merged) << "'" << c.current << "' + '" << c.incoming << "'";
  }
  CCardField notes;
  notes.SetFieldName("Notes");
  EXPECT_EQ(ErrorText([&] { notes.MergeCategories("A"); }), "Only the Categories field can merge categories");
}

TEST(CCardFieldTest, ReadOnlyByTypeOrByName) {
  struct Case { std::string name; bool madeReadOnly, readOnly; };
  for (const Case& c : std::vector<Case>{{"Modified Date", false, true}, {"Creation Date", false, true},
                                         {"Solvane Status", false, true}, {"Notes", false, false},
                                         {"Badge", true, true},          {"modified date", false, false}}) {
    CCardField field;
    field.SetFieldName(c.name);
    if (c.madeReadOnly) field.MakeReadOnly();
    EXPECT_EQ(std::to_string(field.IsReadOnly()) + std::to_string(field.IsReadOnlyType()),
              std::to_string(c.readOnly) + std::to_string(c.madeReadOnly))
        << c.name;
  }
}

}  // namespace
}  // namespace ombrel
