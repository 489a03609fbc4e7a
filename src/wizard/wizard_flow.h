// What the wizard decides, without its window: which step it is on, which
// dupe sets each step shows, which texts go with which counts, which
// controls are offered, which question an automatic action asks, and how the
// lists are kept honest when the database changes under them.
//
// The lists follow what a fresh look at the database would show. A step's
// list is searched when the step is first reached (with the later steps'
// lists, in the same reading of the cards) and kept afterwards, so going back
// and forth never searches again. Once the wizard itself changes
// the database (an automatic action, or a review that saves), the list the
// user worked on drops the sets left without duplicates and every other list
// is forgotten: it is searched again when its step is next shown, so no step
// ever offers a card that is gone or a card as it was before a merge.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ombrel/foundation/clist.h"

namespace ombrel {

class CCard;

// A resource text with its substitutions; id 0 for no text.
struct ResText {
  ResText() = default;
  ResText(int32_t textId, std::vector<std::string> subs = {}) : id(textId), substitutions(std::move(subs)) {}
  int32_t id = 0;
  std::vector<std::string> substitutions;
  bool operator==(const ResText&) const = default;
  std::string Text() const;  // empty for id 0
};

// Everything the wizard's window shows for one step.
struct WizardPage {
  ResText step;  // "Step 2 of 5"
  ResText title, subTitle, desc, listTitle, listTip;
  ResText autoActionCaption, autoActionLabel, reviewLabel, clickNext;
  bool descLineBreak = false;   // the description is followed by a line break
  bool showList = false;        // lblListTitle and lstDupes
  bool showAutoAction = false;  // lblAutoAction and cmdAutoAction
  bool showReviewLabel = false;
  bool showReviewButton = false;
  bool backEnabled = false;
  bool nextEnabled = false;
};

class CWizardFlow {
 public:
  static constexpr int32_t kSteps = 5;

  CWizardFlow();

  int32_t Step() const { return step_; }
  // The list a step shows: its type's list at steps 2 to 4 (null until
  // searched), null at steps 1 and 5.
  std::shared_ptr<CList> CurrentDupes() const { return ListOfStep(step_); }
  std::shared_ptr<CList> ListOfStep(int32_t step) const;
  std::shared_ptr<CList> ListOfType(int32_t dupeType) const;
  // The dupe type a step shows, 0 for steps 1 and 5.
  static int32_t TypeOfStep(int32_t step);

  // The types to search for before step can be shown, in type order: none
  // when the step's list is there; else its type and every later one still
  // missing (every missing one for the summary).
  std::vector<int32_t> TypesToSearch(int32_t step) const;
  // A search for those types gave these sets (CList of CDupeSet per type).
  void SetList(int32_t dupeType, std::shared_ptr<CList> sets);
  // Moves to step (1..5); raises "Unknown wizard step" outside them.
  void GoTo(int32_t step);
  int32_t NextStep() const { return step_ < kSteps ? step_ + 1 : step_; }
  int32_t PreviousStep() const { return step_ > 1 ? step_ - 1 : step_; }

  // What step shows now; raises "Unknown wizard step" for a step outside 1..5.
  WizardPage Page() const { return PageOf(step_); }
  WizardPage PageOf(int32_t step) const;
  // The automatic action's question for k duplicate cards at step; raises
  // "Unimplemented Wizard step" at steps other than 2 and 3.
  static ResText AutoActionQuestion(int32_t step, int32_t k);
  // The review screen's caption at step; raises "Unknown Wizard step" at
  // steps without one.
  static int32_t ReviewCaption(int32_t step);

  // Drops the sets that no longer hold duplicates from every list.
  void CompactDupes();
  // The wizard changed the database while showing step: that step's list is
  // compacted and every other list forgotten.
  void DatabaseChanged();
  // Whether a set of any list holds a card with the ID of card.
  bool ReferencesExist(const CCard& card) const;

 private:
  int32_t step_ = 1;
  std::array<std::shared_ptr<CList>, 3> lists_;  // by type - 1
};

}  // namespace ombrel
