// A second, deliberately plain implementation of the duplicate search, used
// to check CDupeSearch on random stores. It follows the written algorithm
// step by step, with no shortcut of any kind: one store call per value, the
// three key tables, a binary insertion into a plain vector, and the grouping
// loop over a list from which taken cards are removed. Membership is decided
// by CDupeSet::AddCardIfDupe, which has tests of its own. Everything reads
// the store through the shared CardStoreMgr().
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ombrel {

class CCard;
class CDupeSet;
class FakeCardStore;
class ICardStore;

// The cards of a fake store in a new SQLite file at path, front images included.
std::shared_ptr<ICardStore> InSqlite(const FakeCardStore& fake, const std::string& path);

namespace model {

using Cards = std::vector<std::shared_ptr<CCard>>;
using Sets = std::vector<std::shared_ptr<CDupeSet>>;

// GetCard, with the tag set to Trim(last name + "," + stored "First Name").
std::shared_ptr<CCard> LoadCard(int32_t cardId);
// The cards that share a name or e-mail key with an earlier card, and their
// partners, in the order they were first registered as suspects.
Cards GetSuspectCards();
// Binary insertion on the tags, then the check walk that clears "," tags
// (all but the one at the last position).
void SortCards(Cards& cards);
// The sets of one type: those whose primary has a name first, then the
// nameless ones, each in creation order. cards is consumed.
Sets FindDupes(int32_t dupeType, Cards cards);
// One line per set: "type primary: dupe dupe ...".
std::string DumpSets(const Sets& sets);

}  // namespace model

}  // namespace ombrel
