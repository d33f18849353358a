#include "store/BlocksFromBlkInLst.h"

#include <algorithm>

#include "store/MadeBlocks.h"

namespace Tolvar {

namespace {

// The slot of the last entry of one type: the next one mostly names the same file, letter by
// letter, and then its name need not be looked up.
struct LastName {
    BlockList NameRecord;
    std::int32_t Slot = 0;

    bool IsSame(BlockList Other) const {
        return Slot != 0 && std::ranges::equal(NameRecord, Other);
    }
};

template <class Find, class Add>
std::int32_t SlotOf(LastName& Last, BlockList NameRecord, Find&& FindSlot, Add&& AddSlot) {
    if (Last.IsSame(NameRecord)) return Last.Slot;
    const std::string Name = BlkNameFromLongs(NameRecord);
    std::int32_t Slot = FindSlot(Name);
    if (Slot == 0) Slot = AddSlot(Name);
    Last = {NameRecord, Slot};
    return Slot;
}

class HandOver {
  public:
    explicit HandOver(WoroFileBlockMod& Store) : Store_(Store) {}

    std::int32_t Make(const BlkInEntry& Entry) {
        const Extent Where{Entry.BlkLen, Entry.BlkStartPos, Entry.BlkFilePos};
        switch (Entry.TypeCode) {
            case BlkFile:
                return Store_.BlockHandOver(Where, BlkFile, WorkSlot(Entry));
            case BlkOrgFile:
                return Store_.BlockHandOver(Where, BlkOrgFile, OrgSlot(Entry));
            case BlkSilent:
                break;
            default:
                Store_.ShowError("Error - Block type can not be converted to Block");
        }
        return Store_.BlockHandOver(Where, BlkSilent, 0);
    }

  private:
    std::int32_t WorkSlot(const BlkInEntry& Entry) {
        return SlotOf(
            LastWork_, Entry.NameRecord,
            [this](const std::string& Name) { return Store_.WorkFileFind(Name); },
            [this](const std::string& Name) { return Store_.WorkFileAdd(Name); });
    }

    std::int32_t OrgSlot(const BlkInEntry& Entry) {
        return SlotOf(
            LastOrg_, Entry.NameRecord,
            [this](const std::string& Name) { return Store_.OrgFileFind(Name); },
            [&](const std::string& Name) {
                return Store_.OrgFileAdd(Name, Entry.Channels, Entry.Bits);
            });
    }

    WoroFileBlockMod& Store_;
    LastName LastWork_;
    LastName LastOrg_;
};

}  // namespace

std::vector<std::int32_t> BlocksFromBlkInLst(WoroFileBlockMod& Store,
                                             const CheckedBlockList& BlkInLst) {
    MadeBlocks Made(Store, static_cast<std::size_t>(BlkInLst.Count()));
    HandOver Editor(Store);
    BlkInLst.ForEach([&](const BlkInEntry& Entry) { Made.Add(Editor.Make(Entry)); });
    return Made.Take();
}

}  // namespace Tolvar
