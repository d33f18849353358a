#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "platform/Checked.h"
#include "store/BlockRec.h"
#include "store/SlotSet.h"

namespace Tolvar {

inline std::string& NameOf(OrgFileRec& Rec) {
    return Rec.OrgFileName;
}
inline std::string& NameOf(WorkFileRec& Rec) {
    return Rec.WorkFileName;
}
inline std::int32_t& UseCntOf(OrgFileRec& Rec) {
    return Rec.OrgUseCnt;
}
inline std::int32_t& UseCntOf(WorkFileRec& Rec) {
    return Rec.WorkUseCnt;
}

/// File names are bytes; only ASCII letters have a case to ignore.
constexpr char FoldedByte(char Byte) {
    return Byte >= 'A' && Byte <= 'Z' ? static_cast<char>(Byte - 'A' + 'a') : Byte;
}

/// The slots 1..Count() of one kind of file. A slot is in use while its use count is not 0; only
/// a slot that is not may be renamed. A number outside the table is RuntimeFailure(Input).
template <class Rec>
class FileTable {
  public:
    FileTable() : InUse_(0, NameHash{&Recs_}, SameName{&Recs_}) {}
    FileTable(const FileTable&) = delete;
    FileTable& operator=(const FileTable&) = delete;

    std::int32_t Count() const noexcept { return static_cast<std::int32_t>(Recs_.size()); }
    Rec& At(std::int32_t Slot) { return Recs_[IndexOf(Slot)]; }
    const Rec& At(std::int32_t Slot) const { return Recs_[IndexOf(Slot)]; }

    /// The first slot that is not in use, appended when all are.
    std::int32_t FirstFree() {
        if (const std::int32_t Slot = Free_.First(); Slot != 0) return Slot;
        const std::int32_t Slot = CheckedAdd(Count(), 1);
        Free_.Reserve(Slot);
        Named_.Reserve(Slot);
        Recs_.emplace_back();
        Free_.Insert(Slot);
        return Slot;
    }

    /// A slot that is not in use but has a name; 0 when there is none.
    std::int32_t FirstNamedFree() const noexcept { return Named_.First(); }

    /// The first slot in use whose name is Name, ignoring case; 0 when there is none.
    std::int32_t Find(std::string_view Name) const {
        std::int32_t First = 0;
        const auto [From, To] = InUse_.equal_range(Name);
        for (auto Slot = From; Slot != To; ++Slot) {
            if (First == 0 || *Slot < First) First = *Slot;
        }
        return First;
    }

    void Rename(std::int32_t Slot, const std::string& Name) {
        NameOf(At(Slot)) = Name;
        Name.empty() ? Named_.Erase(Slot) : Named_.Insert(Slot);
    }

    /// One block more. On RuntimeFailure(Overflow) or std::bad_alloc nothing has changed.
    void Use(std::int32_t Slot) {
        std::int32_t& UseCnt = UseCntOf(At(Slot));
        const std::int32_t Raised = CheckedAdd(UseCnt, 1);
        if (UseCnt == 0) {
            InUse_.insert(Slot);
            Free_.Erase(Slot);
            Named_.Erase(Slot);
        }
        UseCnt = Raised;
    }

    /// One block less; true when that was the last one.
    bool Unuse(std::int32_t Slot) {
        std::int32_t& UseCnt = UseCntOf(At(Slot));
        if (--UseCnt != 0) return false;
        auto Entry = InUse_.equal_range(Slot).first;
        while (*Entry != Slot)
            ++Entry;
        InUse_.erase(Entry);
        Free_.Insert(Slot);
        if (!NameOf(At(Slot)).empty()) Named_.Insert(Slot);
        return true;
    }

  private:
    using Records = std::deque<Rec>;

    // The index holds slot numbers only, so that taking one out allocates nothing.
    struct NameHash {
        using is_transparent = void;
        Records* Of;
        std::size_t operator()(std::string_view Name) const {
            std::uint64_t Hash = 14695981039346656037U;
            for (const char Byte : Name) {
                Hash = (Hash ^ static_cast<unsigned char>(FoldedByte(Byte))) * 1099511628211U;
            }
            return static_cast<std::size_t>(Hash);
        }
        std::size_t operator()(std::int32_t Slot) const {
            return operator()(NameOf((*Of)[static_cast<std::size_t>(Slot) - 1]));
        }
    };
    struct SameName {
        using is_transparent = void;
        Records* Of;
        std::string_view Key(std::string_view Name) const { return Name; }
        std::string_view Key(std::int32_t Slot) const {
            return NameOf((*Of)[static_cast<std::size_t>(Slot) - 1]);
        }
        bool operator()(const auto& A, const auto& B) const {
            const std::string_view X = Key(A);
            const std::string_view Y = Key(B);
            if (X.size() != Y.size()) return false;
            for (std::size_t I = 0; I < X.size(); ++I) {
                if (FoldedByte(X[I]) != FoldedByte(Y[I])) return false;
            }
            return true;
        }
    };

    std::size_t IndexOf(std::int32_t Slot) const {
        if (Slot < 1 || Slot > Count()) {
            throw RuntimeFailure(FailureKind::Input, "There is no file slot " +
                                                         std::to_string(Slot) + " among " +
                                                         std::to_string(Count()) + " slots");
        }
        return static_cast<std::size_t>(Slot) - 1;
    }

    Records Recs_;
    SlotSet Free_;   // slots that are not in use
    SlotSet Named_;  // those of them that still have a name
    std::unordered_multiset<std::int32_t, NameHash, SameName> InUse_;
};

}  // namespace Tolvar
