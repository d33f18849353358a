#include "host/client/PlayDllClient.h"

#include <exception>
#include <string_view>
#include <utility>

#include "host/client/ServerLink.h"
#include "host/dbus/wire/Names.h"

namespace Tolvar {
namespace {

/// What a step that is not the server's failed with, as the editor gets it.
template <typename Step>
auto Guarded(Step Do) {
    try {
        return Do();
    } catch (const RuntimeFailure& Failure) {
        throw PlayDllError("", Failure.what());
    }
}

void RequireSendable(std::size_t LeftCount, std::size_t RightCount) {
    constexpr std::size_t MostCount = Wire::MostArrayBytes / sizeof(std::int32_t);
    constexpr std::size_t MostTogether = Wire::MostListBytes / sizeof(std::int32_t);
    if (LeftCount <= MostCount && RightCount <= MostCount && LeftCount + RightCount <= MostTogether)
        return;
    throw PlayDllError(
        "", "the block lists are too large for a message: " + std::to_string(LeftCount) + " and " +
                std::to_string(RightCount) + " values, at most " + std::to_string(MostCount) +
                " each and " + std::to_string(MostTogether) + " together");
}

}  // namespace

struct PlayDllClient::Impl : ServerLink {
    using ServerLink::ServerLink;
};

PlayDllClient::PlayDllClient(std::unique_ptr<Impl> Made) : Inner_(std::move(Made)) {}
PlayDllClient::PlayDllClient(PlayDllClient&&) noexcept = default;
PlayDllClient& PlayDllClient::operator=(PlayDllClient&&) noexcept = default;
PlayDllClient::~PlayDllClient() = default;

PlayDllClient PlayDllClient::Start(const ServerStart& How) {
    return Guarded([&] {
        auto Process = std::make_unique<ServerProcess>(How.Program, How.Arguments);
        return PlayDllClient(std::make_unique<Impl>(std::move(Process), How.LimitMs));
    });
}

PlayDllClient PlayDllClient::OnSessionBus(int LimitMs) {
    return Guarded([=] { return PlayDllClient(std::make_unique<Impl>(nullptr, LimitMs)); });
}

void PlayDllClient::OnMsgBoxOb(EventSink Sink) {
    Inner_->OnMsgBoxOb(std::move(Sink));
}

void PlayDllClient::OnServerGone(std::function<void(const std::string& Why)> Handler) {
    Inner_->OnServerGone(std::move(Handler));
}

int PlayDllClient::Descriptor() const {
    return Inner_->WaitFd();
}

void PlayDllClient::Dispatch() {
    Inner_->Dispatch();
}

bool PlayDllClient::Gone() const {
    return Inner_->Gone();
}

int PlayDllClient::ProcessId() const {
    return Inner_->ProcessId();
}

int PlayDllClient::Release() {
    return Guarded([&] { return Inner_->Release(); });
}

// The members, in slot order.

void PlayDllClient::DxObj(std::int32_t& MFrmHwnd) {
    Guarded([&] { Inner_->CallInOut("DxObj", MFrmHwnd); });
}

std::int32_t PlayDllClient::PlayCurrentPosition() {
    return Guarded([&] { return Inner_->Get("PlayCurrentPosition"); });
}

void PlayDllClient::PlayAgain() {
    Guarded([&] { Inner_->Call("PlayAgain"); });
}

void PlayDllClient::PlayAgainRev() {
    Guarded([&] { Inner_->Call("PlayAgainRev"); });
}

std::int32_t PlayDllClient::PlayRunningDx7State() {
    return Guarded([&] { return Inner_->Get("PlayRunningDx7State"); });
}

void PlayDllClient::PlayUTurn() {
    Guarded([&] { Inner_->Call("PlayUTurn"); });
}

void PlayDllClient::StopPlay() {
    Guarded([&] { Inner_->Call("StopPlay"); });
}

void PlayDllClient::PlayContinue() {
    Guarded([&] { Inner_->Call("PlayContinue"); });
}

void PlayDllClient::UpdatePlayPosition() {
    Guarded([&] { Inner_->Call("UpdatePlayPosition"); });
}

void PlayDllClient::PlayPause() {
    Guarded([&] { Inner_->Call("PlayPause"); });
}

void PlayDllClient::WriteWaveMemo(std::int32_t FmtBits, std::int32_t FmtChannal,
                                  std::int32_t FmtFriq, std::int32_t WaveNos,
                                  std::span<const std::int32_t> BlkInLstL,
                                  std::span<const std::int32_t> BlkInLstR) {
    RequireSendable(BlkInLstL.size(), BlkInLstR.size());
    Guarded([&] {
        Inner_->CallHandOver({FmtBits, FmtChannal, FmtFriq, WaveNos}, BlkInLstL, BlkInLstR);
    });
}

void PlayDllClient::MemorySizeToUse(std::int32_t Bytes) {
    Guarded([&] { Inner_->Set("MemorySizeToUse", "i", &Bytes); });
}

void PlayDllClient::LoopPlayON(bool On) {
    const int Value = On ? 1 : 0;
    Guarded([&] { Inner_->Set("LoopPlayON", "b", &Value); });
}

void PlayDllClient::PlayTempoFor(float Factor) {
    const double Value = Factor;
    Guarded([&] { Inner_->Set("PlayTempoFor", "d", &Value); });
}

void PlayDllClient::PlayTempoRev(float Factor) {
    const double Value = Factor;
    Guarded([&] { Inner_->Set("PlayTempoRev", "d", &Value); });
}

void PlayDllClient::AppTmpDir(const std::string& Folder) {
    if (Folder.find('\0') != std::string::npos) {
        throw PlayDllError("", "AppTmpDir: a folder's name holds no zero byte");
    }
    Guarded([&] { Inner_->Set("AppTmpDir", "s", Folder.c_str()); });
}

void PlayDllClient::ReleaseFiles() {
    Guarded([&] { Inner_->Call("ReleaseFiles"); });
}

void PlayDllClient::PlayAtPos(std::int32_t Pos) {
    Guarded([&] { Inner_->CallAt("PlayAtPos", Pos); });
}

void PlayDllClient::PlayAtPosRev(std::int32_t Pos) {
    Guarded([&] { Inner_->CallAt("PlayAtPosRev", Pos); });
}

}  // namespace Tolvar
