#include "waveplay/script/StateDump.h"

#include <array>
#include <charconv>

#include "state/PlayDllMod.h"
#include "store/BlockCarrBuffClass.h"
#include "store/WoroFileBlockMod.h"
#include "waveplay/script/Json.h"

namespace Tolvar {
namespace {

// The members of one JSON object in the order in which they are added.
class Members {
  public:
    Members& Raw(std::string_view Name, std::string_view Value) {
        Text_ += Text_.empty() ? "" : ", ";
        Text_.append(JsonString(Name)).append(": ").append(Value);
        return *this;
    }
    Members& Number(std::string_view Name, std::int32_t Value) {
        return Raw(Name, std::to_string(Value));
    }
    Members& Truth(std::string_view Name, bool Value) { return Number(Name, Value ? -1 : 0); }
    Members& Factor(std::string_view Name, float Value) {
        std::array<char, 32> Digits{};
        const auto Written = std::to_chars(Digits.data(), Digits.data() + Digits.size(), Value);
        return Raw(Name, std::string_view(Digits.data(), Written.ptr));
    }
    Members& Carrier(std::string_view Name, const BlockCarrBuffClass* Channel) {
        return Raw(Name, Channel == nullptr ? "null" : std::to_string(Channel->WaveINos()));
    }
    std::string Object() const { return "{" + Text_ + "}"; }

  private:
    std::string Text_;
};

void AddWave(Members& All, const PlayerState& State) {
    All.Number("FmtBits", State.FmtBits)
        .Number("FmtChannal", State.FmtChannal)
        .Number("FmtFriq", State.FmtFriq)
        .Number("WaveNos", State.WaveNos)
        .Truth("LoopPlayON", State.LoopPlayON)
        .Factor("PlayTempoFor", State.PlayTempoFor)
        .Factor("PlayTempoRev", State.PlayTempoRev)
        .Number("MemorySizeToUse", State.MemorySizeToUse)
        .Raw("AppTmpDir", JsonString(State.AppTmpDir))
        .Carrier("BlkCarrL", State.BlkCarrL.get())
        .Carrier("BlkCarrR", State.BlkCarrR.get());
}

void AddRun(Members& All, const PlayerState& State) {
    All.Number("PlayDirection", State.PlayDirection)
        .Number("PlayCurPos", State.PlayCurPos)
        .Number("PlayStartOff", State.PlayStartOff)
        .Number("PlayFriq", State.PlayFriq)
        .Number("PlayRunningState", State.PlayRunningState)
        .Number("SegFrames", State.SegFrames)
        .Number("BuffFrames", State.BuffFrames)
        .Number("SegSamples", State.SegSamples)
        .Number("BuffSamples", State.BuffSamples)
        .Number("SegBytes", State.SegBytes)
        .Number("BuffBytes", State.BuffBytes)
        .Number("FillNextPos", State.FillNextPos)
        .Number("SegFilled", State.SegFilled)
        .Number("SegFilledBytes", State.SegFilledBytes)
        .Number("StreamBuff", State.StreamBuff.Count())
        .Number("LastSegMs", State.LastSegMs)
        .Truth("FillEnded", State.FillEnded)
        .Number("StopTimerMark", State.StopTimerMark);
}

void AddStore(Members& All, const WoroFileBlockMod& Store) {
    All.Number("BlockCnt", Store.BlockCnt())
        .Number("OrgFileCnt", Store.OrgFileCnt())
        .Number("WorkFileCnt", Store.WorkFileCnt())
        .Number("OrgFileOpen", Store.OrgFileOpen())
        .Number("WorkFileOpen", Store.WorkFileOpen())
        .Number("BuffMemUsed", Store.BuffMemUsed())
        .Number("UseClock", Store.UseClock());
}

}  // namespace

std::string StateDump(const PlayerState& State, std::int32_t EngineCode,
                      const WoroFileBlockMod& Store) {
    Members All;
    AddWave(All, State);
    AddRun(All, State);
    All.Number("EngineCode", EngineCode);
    AddStore(All, Store);
    return All.Object();
}

}  // namespace Tolvar
