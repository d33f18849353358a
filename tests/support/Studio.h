#pragma once

#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "card/devices/DirectX7Layer.h"
#include "card/devices/WaveOutDevice.h"
#include "card/voices/SoundCard.h"
#include "platform/Apartment.h"
#include "platform/System.h"
#include "platform/VirtualClock.h"
#include "server/PlayDllClass.h"
#include "store/BlockCarrBuffClass.h"
#include "store/WoroFileBlockMod.h"
#include "tests/server/FaultyDevices.h"
#include "tests/support/BlockLists.h"
#include "tests/support/Fakes.h"

namespace Tolvar::Testing {

using namespace testing;

using Strings = std::vector<std::string>;

/// A wave to load: frame f carries f in its left and -f in its right channel (8 bits: f modulo
/// 256, as an unsigned byte), so that what is heard names its frames.
struct TestWave {
    std::int32_t Frames = 10000;
    std::int32_t Channels = 1;
    std::int32_t Rate = 1000;
    std::int32_t Bits = 16;
    std::int32_t BlockFrames = 700;  ///< the wave is handed over in blocks of this length
};

/// A whole server on the virtual clock with ears on its sound card.
struct Studio {
    explicit Studio(EngineOrder Engine = EngineOrder::WaveOut,
                    std::unique_ptr<ListeningSink> Given = std::make_unique<ListeningSink>(),
                    SinkRate Rate = {})
        : Ears(Given.get()),
          Card(Home, {std::move(Given), nullptr}, Rate, Journal),
          Player(std::make_unique<PlayDllClass>(Os, State, *Store, Engine)) {
        Player->OnMsgBoxOb([this](std::string_view Msg, std::string_view Ttl) {
            Reports.push_back(Msg == "S2" ? std::string(Ttl)
                                          : std::string(Msg) + "|" + std::string(Ttl));
            if (OnReport) OnReport(Reports.back());
        });
    }

    std::int64_t NowMs() const { return Time.NowNs() / NsPerMs; }
    void Advance(std::int64_t Ms) { Home.AdvanceBy(Ms); }

    std::int32_t TakeEngine(std::int32_t Window = 1) {
        Player->DxObj(Window);
        return Window;
    }

    void PutWave(const TestWave& W) {
        MemoryFiles::Bytes& Raw = Disk.Content["wave"];
        Raw.clear();
        for (std::int32_t F = 1; F <= W.Frames; ++F) {
            for (std::int32_t C = 0; C < W.Channels; ++C) {
                const auto Value = static_cast<std::uint32_t>(C == 0 ? F : -F);
                for (int B = 0; B < W.Bits; B += 8)
                    Raw.push_back(static_cast<std::uint8_t>(Value >> B));
            }
        }
    }

    static std::vector<std::int32_t> WaveList(const TestWave& W, std::int32_t Channel) {
        std::vector<ListEntry> Entries;
        const std::int32_t Bytes = W.Bits / 8;
        for (std::int32_t Start = 1; Start <= W.Frames; Start += W.BlockFrames)
            Entries.push_back({.Type = BlkOrgFile,
                               .Len = std::min(W.BlockFrames, W.Frames - Start + 1),
                               .Start = Start,
                               .Name = "wave",
                               .FilePos = 1 + ((Start - 1) * W.Channels + Channel) * Bytes,
                               .Channels = W.Channels,
                               .Bits = W.Bits});
        return ListOf(Entries);
    }

    void HandOver(const TestWave& W) {
        Player->WriteWaveMemo(W.Bits, W.Channels, W.Rate, W.Frames, WaveList(W, 0),
                              W.Channels == 2 ? WaveList(W, 1) : std::vector<std::int32_t>{});
    }

    /// An engine, the wave, and no reports yet.
    void Load(const TestWave& W) {
        TakeEngine();
        PutWave(W);
        HandOver(W);
        ASSERT_EQ(Said().back(), "Done");
    }

    void PlayAll() {
        Player->PlayAgain();
        EXPECT_TRUE(PlayOut());
    }

    /// How often the thread wakes up within the next second, at most two times.
    int Wakings() {
        int Asked = -1;  // once before the first
        Home.RunUntil(Time.NowNs() + NsPerSecond, [&] { return ++Asked > 1; });
        return Asked;
    }

    /// The reports since the last call.
    Strings Said() { return std::exchange(Reports, {}); }

    /// The frames heard since the last call, without silence (frame 0 is none); stereo is checked
    /// for its sides. The run must be over.
    std::vector<int> Heard() {
        std::vector<int> Frames;
        const auto Step = static_cast<std::size_t>(std::max(Ears->Channels, 1));
        for (std::size_t At = 0; At < Ears->Heard.size(); At += Step) {
            if (Ears->Heard[At] != 0) Frames.push_back(Ears->Heard[At]);
            EXPECT_TRUE(Step == 1 || Ears->Heard[At + 1] == -Ears->Heard[At]) << "sample " << At;
        }
        Ears->Heard.clear();
        return Frames;
    }

    /// From now on the editor does that whenever it is told so.
    void Inside(const std::string& Told, const std::function<void()>& Do) {
        OnReport = [Told, Do](const std::string& Report) {
            if (Report == Told) Do();
        };
    }

    std::int32_t Position() {
        Player->UpdatePlayPosition();
        return Player->PlayCurrentPosition();
    }

    /// Plays on until the run has ended; true when it did within Ms.
    bool PlayOut(std::int64_t Ms = 3600'000) {
        return Home.RunUntil(Time.NowNs() + Ms * NsPerMs,
                             [this] { return State.PlayRunningState == 0; });
    }

    Strings Reports;
    std::function<void(const std::string&)> OnReport;
    ListLog Journal;
    ListBox Box;
    MemoryFiles Disk;
    VirtualClock Time;
    Apartment Home{Time, Journal};
    ListeningSink* Ears;  ///< the card's; null when there is no device
    SoundCard Card;
    WaveOutDevice Device{Card};
    FaultPlan DeviceFaults;
    FaultyWaveOut FaultyDevice{Device, DeviceFaults};
    FaultyLibrary Service{Card, DeviceFaults, Journal};
    System Os{Home, Disk, Box, Journal, FaultyDevice, Service, [this] {
                  RequireOfDevice(!DeviceFaults.Fails(), "refused");
                  return std::make_unique<FaultyDirectX7>(std::make_unique<DirectX7Root>(Card),
                                                          DeviceFaults);
              }};
    PlayerState State;
    std::unique_ptr<WoroFileBlockMod> Store = std::make_unique<WoroFileBlockMod>(Disk, Box, State);
    std::unique_ptr<PlayDllClass> Player;
};

inline constexpr std::array AllEngines{EngineOrder::Dx9, EngineOrder::Dx7, EngineOrder::WaveOut};

/// What the console calls that engine.
inline const char* NameOf(EngineOrder Engine) {
    return std::array{"auto", "dx9", "dx7", "waveout"}[static_cast<std::size_t>(Engine)];
}

inline std::string EngineName(const TestParamInfo<EngineOrder>& Info) {
    return NameOf(Info.param);
}

/// What all engines do alike, and where they differ.
class EachEngine : public TestWithParam<EngineOrder> {};

/// From, From + 1, ... To.
inline std::vector<int> Frames(int From, int To) {
    std::vector<int> All(static_cast<std::size_t>(To - From + 1));
    std::iota(All.begin(), All.end(), From);
    return All;
}

}  // namespace Tolvar::Testing
