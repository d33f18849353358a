#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "host/client/PlayDllClient.h"
#include "host/client/ServerProcess.h"
#include "host/dbus/wire/BusLink.h"
#include "host/dbus/wire/NameWatch.h"

namespace Tolvar {

/// The editor's end of the wire: calls by name that wait for their answers, and the reports that
/// come meanwhile and between. PlayDllError for what the server refuses and when it is gone,
/// RuntimeFailure for what goes wrong on this side. One thread.
class ServerLink {
  public:
    /// Process null: the server on the session bus. The server is told where the sink is. One that
    /// lets a call wait for LimitMs, without an answer and without a report, is given up: it is
    /// gone from then on, and killed if it is the editor's own.
    ServerLink(std::unique_ptr<ServerProcess> Process, int LimitMs);
    /// Release, telling nobody and waiting 5 seconds at most; what it throws is nobody's.
    ~ServerLink();
    ServerLink(const ServerLink&) = delete;
    ServerLink& operator=(const ServerLink&) = delete;

    void OnMsgBoxOb(PlayDllClient::EventSink Handler) { Sink_ = std::move(Handler); }
    void OnServerGone(std::function<void(const std::string&)> Handler);

    void Call(const char* Member);
    void CallAt(const char* Member, std::int32_t Pos);
    void CallInOut(const char* Member, std::int32_t& Value);
    /// Format is FmtBits, FmtChannal, FmtFriq, WaveNos.
    void CallHandOver(const std::array<std::int32_t, 4>& Format, std::span<const std::int32_t> Left,
                      std::span<const std::int32_t> Right);
    std::int32_t Get(const char* Property);
    /// Type is one basic D-Bus type; Value as sd_bus_message_append_basic takes it.
    void Set(const char* Property, const char* Type, const void* Value);
    int Release();

    int WaitFd() const { return Gone() ? -1 : Link_->WaitFd(); }
    void Dispatch();
    bool Gone() const { return !WhyGone_.empty(); }
    int ProcessId() const { return Process_ ? Process_->Id() : -1; }

  private:
    void FindOnBus();
    void Advise();
    Message NewCall(const char* Interface, const char* Member);
    /// Known: what the editor calls it, if that is not the message's member.
    Message Finish(const Message& Asked, const char* Known = nullptr);
    void RequireThere(const std::string& Known) const;
    Message AwaitAnswer(std::uint64_t Cookie, const std::string& Member);
    void ServeReports();
    void ServeReport(sd_bus_message* Report);
    void Tell(const char* Msg, const char* Ttl);
    [[noreturn]] void FailGone(const std::string& Member, const std::string& Why);
    void NoteGone(const std::string& Why);

    std::unique_ptr<ServerProcess> Process_;
    std::unique_ptr<BusLink> Link_;
    std::unique_ptr<NameWatch> ServerWatch_;  // null: private
    int LimitMs_;
    std::string Destination_;  // on the bus: the server's own name; "": private
    PlayDllClient::EventSink Sink_;
    std::function<void(const std::string&)> ServerGone_;
    std::string WhyGone_;  // "": it is there
    bool GaveUp_ = false;  // it was there, but did not answer
    bool Released_ = false;
    int Reporting_ = 0;  // sinks on the stack
};

}  // namespace Tolvar
