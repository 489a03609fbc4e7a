// CUserAction: one change the user made on the review screen, as the undo
// and redo stacks keep it: what kind of change, in which dupe set (1-based
// position in the review's list), and what was there before.
#pragma once

#include <cstdint>
#include <memory>

#include "ombrel/foundation/cdictionary.h"
#include "ombrel/foundation/clist.h"
#include "ombrel/foundation/object.h"

namespace ombrel {

class CCard;
class CCardField;

enum UserActionType : int32_t {
  FIELD_EDIT = 1,           // a clone of the primary's field before the change
  CARD_DELETION = 2,        // the deleted dupe itself
  FRONT_IMAGE_CHANGE = 3,   // the primary's front image ID before the change
  BACK_IMAGE_CHANGE = 4,    // the same for the back image
  PRIMARY_REPLACEMENT = 5,  // a copy of the primary before the change
};

class CUserAction final : public CObject {
 public:
  std::string_view ClassName() const override { return "CUserAction"; }

  // Stores the type and set index first, whatever follows; a wrong type
  // raises "Wrong actionType for CUserAction", data of the wrong class for
  // the type "Wrong parameters for CUserAction::SetData" (keeping what the
  // slot held).
  void SetData(int32_t actionType, int32_t setIndex, const ObjectRef& data);
  int32_t GetSetIndex() const;
  int32_t GetActionType() const { return actionType_; }
  std::shared_ptr<CCard> GetCard() const;
  std::shared_ptr<CCardField> GetField() const;
  std::shared_ptr<CLong> GetImageID() const;

 private:
  int32_t actionType_ = 0;
  int32_t setIndex_ = -1;
  std::shared_ptr<CCard> card_;
  std::shared_ptr<CCardField> field_;
  std::shared_ptr<CLong> imageId_;
};

}  // namespace ombrel
