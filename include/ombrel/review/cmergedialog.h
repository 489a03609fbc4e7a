// CMergeDialog: a field-by-field merge between one of the host's cards and a
// record of the same contact from another address book. The host hands in
// both sides' texts and images, shows the dialog (the review screen with the
// merged card beside the two sources) and reads the merged card back.
//
//   ombrel::CMergeDialog merge;
//   merge.SetImages(hostImage, otherImage);               // image handles, 0 for none
//   merge.SetFieldData("Name", "Ann Lee", "", "Ann M. Lee");
//   merge.SetFieldData("Title", "CEO", "", "");
//   if (!merge.Show(mainWindow->winId(), "Merge contact", "This card\tAddress book")) {
//     std::string data;
//     merge.GetCardData(data);                               // "Name\tAnn Lee\tTitle\tCEO\t"
//   }
//
// Show answers true when the user cancelled. The host must have made its
// QApplication first. Show connects the component's shared card store
// manager to the dialog's own in-memory store.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace ombrel {

class CCard;
class CDupeSet;
class CMemoryCardStore;

class CMergeDialog {
 public:
  CMergeDialog();
  ~CMergeDialog();
  CMergeDialog(const CMergeDialog&) = delete;
  CMergeDialog& operator=(const CMergeDialog&) = delete;

  // The host's card's image and the other record's (image handles).
  void SetImages(int32_t vmDIB, int32_t pimDIB);
  // A field of all three cards: the host's text on the merged card and the
  // host's card, the other record's on its card; the host's label on all.
  void SetFieldData(const std::string& fieldName, const std::string& vmText, const std::string& vmLabel,
                    const std::string& pimText);
  // Shows the merge over the host's window; true when the user cancelled.
  bool Show(int64_t hParentWnd, const std::string& caption, const std::string& dupeHeaders);
  // Appends "name TAB text TAB" for every field of the merged card that has
  // text (tabs in a text become blanks).
  void GetCardData(std::string& cardData) const;

  // The merged card of the last Show (null before one).
  std::shared_ptr<const CCard> MergedCard() const;

 private:
  std::shared_ptr<CMemoryCardStore> store_;
  std::array<std::shared_ptr<CCard>, 3> cards_;
  int32_t vmDIB_ = 0;
  int32_t pimDIB_ = 0;
  std::shared_ptr<CDupeSet> mergeSet_;
};

}  // namespace ombrel
