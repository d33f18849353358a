#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/client/ServerProcess.h"
#include "host/dbus/Host.h"
#include "host/dbus/wire/BusLink.h"

namespace Tolvar::Testing {

using namespace std::chrono_literals;
using namespace testing;

/// Polls for the condition; false when it does not hold in time.
inline bool Soon(const std::function<bool()>& Holds, std::chrono::milliseconds Limit = 5s) {
    const auto Until = std::chrono::steady_clock::now() + Limit;
    while (!Holds()) {
        if (std::chrono::steady_clock::now() > Until) return false;
        poll(nullptr, 0, 1);
    }
    return true;
}

inline std::pair<Descriptor, Descriptor> SocketPair() {
    std::array<int, 2> Pair{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, Pair.data()) != 0) std::abort();
    return {Descriptor(Pair[0]), Descriptor(Pair[1])};
}

/// An editor that writes its messages itself, and so can do what the proxy never does.
class RawEditor {
  public:
    explicit RawEditor(Descriptor Socket) : Link(std::move(Socket), BusLink::Side::Client) {}
    explicit RawEditor(std::unique_ptr<ServerProcess> Started)
        : Process(std::move(Started)), Link(Process->TakeSocket(), BusLink::Side::Client) {}

    template <typename... Values>
    Message New(const char* Interface, const char* Member, const char* Types, Values... Each) {
        sd_bus_message* Made = nullptr;
        sd_bus_message_new_method_call(Link.Bus(), &Made, nullptr, Path.c_str(), Interface, Member);
        EXPECT_GE(sd_bus_message_append(Made, Types, Each...), 0);
        return Message(Made);
    }

    /// "" or the name of the error; "closed" or "no answer" when none comes. Text has its text.
    template <typename... Values>
    std::string Ask(const char* Interface, const char* Member, const char* Types, Values... Each) {
        return Await(Link.Send(New(Interface, Member, Types, Each...).get()));
    }
    std::string Await(std::uint64_t Cookie) {
        const std::int64_t LimitNs = BusLink::NowNs() + 8'000'000'000;
        const auto Why = Link.Await(Cookie, &LimitNs, Meanwhile, Answer);
        if (Why == BusLink::Wakening::Closed) return "closed";
        if (Why == BusLink::Wakening::Time) return "no answer";
        const sd_bus_error* Error = sd_bus_message_get_error(Answer.get());
        Text = Error != nullptr ? Error->message : "";
        return Error != nullptr ? Error->name : "";
    }
    std::string Do(const char* Member) { return Ask(Wire::PlayerInterface, Member, ""); }

    std::unique_ptr<ServerProcess> Process;  // ends when the link has gone
    BusLink Link;
    std::string Path = Wire::PlayerPath;
    std::function<void()> Meanwhile = [] {};
    Message Answer;
    std::string Text;
};

/// A RawEditor of a server process whose reports it sees in Reports and answers as Sink says.
struct SinkEditor : RawEditor {
    SinkEditor() : RawEditor(std::make_unique<ServerProcess>(HOST_PROGRAM, Quiet)) {
        Meanwhile = [this] { ServeReports(); };
        EXPECT_EQ(Ask(Wire::HostingInterface, "Advise", "o", "/sink"), "");
    }
    static inline const std::vector<std::string> Quiet{"--log", "/dev/null"};
    void ServeReports() {
        while (Message Report = Link.TakeCall()) {
            const char *Msg = nullptr, *Ttl = nullptr;
            EXPECT_GE(sd_bus_message_read(Report.get(), "ss", &Msg, &Ttl), 0);
            Reports.emplace_back(Ttl);
            Sink(std::move(Report));
        }
    }
    static void Accept(Message Report) { sd_bus_reply_method_return(Report.get(), ""); }
    std::vector<std::string> Said() { return std::exchange(Reports, {}); }

    std::function<void(Message)> Sink = &Accept;
    std::vector<std::string> Reports;
};

}  // namespace Tolvar::Testing
