#include "review/cuseraction.h"

#include "ombrel/cards/ccard.h"
#include "ombrel/cards/ccardfield.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {
template <class T>
std::shared_ptr<T> Require(const ObjectRef& data) {
  auto typed = std::dynamic_pointer_cast<T>(data);
  Trap(!typed, "Wrong parameters for CUserAction::SetData");
  return typed;
}
}  // namespace

void CUserAction::SetData(int32_t actionType, int32_t setIndex, const ObjectRef& data) {
  actionType_ = actionType;
  setIndex_ = setIndex;
  switch (actionType) {
    case FIELD_EDIT: field_ = Require<CCardField>(data); break;
    case CARD_DELETION:
    case PRIMARY_REPLACEMENT: card_ = Require<CCard>(data); break;
    case FRONT_IMAGE_CHANGE:
    case BACK_IMAGE_CHANGE: imageId_ = Require<CLong>(data); break;
    default: RaiseTrap("Wrong actionType for CUserAction");
  }
}

int32_t CUserAction::GetSetIndex() const {
  Trap(setIndex_ < 0, "Set index is not initialized");
  return setIndex_;
}

std::shared_ptr<CCard> CUserAction::GetCard() const {
  Trap(actionType_ != CARD_DELETION && actionType_ != PRIMARY_REPLACEMENT,
       "CUserAction can store card only for card deletion or primary replacement user actions");
  Trap(!card_, "Card was not stored for this user action");
  return card_;
}

std::shared_ptr<CCardField> CUserAction::GetField() const {
  Trap(actionType_ != FIELD_EDIT, "CUserAction can store field only for field edit user action");
  Trap(!field_, "Card field was not stored for this user action");
  return field_;
}

// A primary replacement passes the first check but never stores an image ID.
std::shared_ptr<CLong> CUserAction::GetImageID() const {
  Trap(actionType_ != FRONT_IMAGE_CHANGE && actionType_ != BACK_IMAGE_CHANGE && actionType_ != PRIMARY_REPLACEMENT,
       "CUserAction can store image ID only for image change or primary replacement user actions");
  Trap(!imageId_, "Image ID was not stored for this user action");
  return imageId_;
}

}  // namespace ombrel
