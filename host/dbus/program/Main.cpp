#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "host/PlayServer.h"
#include "host/dbus/Host.h"
#include "host/dbus/Interrupts.h"
#include "platform/posix/Posix.h"
#include "platform/posix/ProcessGuard.h"

namespace Tolvar {
namespace {

constexpr int Done = 0;
constexpr int Lost = 1;
constexpr int Usage = 2;

struct Words {
    PlayServerOptions Setup{.Device = "auto"};
    std::string Rate = "wave";
    std::string Engine = "auto";
    int Fd = -1;
    bool OnBus = false;
};

void Declare(CLI::App& App, Words& Given) {
    App.set_version_flag("--version", "TolvarWaveEditorDll 0.1.0");
    auto* const Where = App.add_option_group("connection");
    Where->add_option("--fd", Given.Fd, "serve the editor at the other end of this open socket")
        ->check(CLI::Range(0, 1 << 20));
    Where->add_flag("--bus", Given.OnBus, "serve one editor at a time on the user's session bus");
    Where->require_option(1);
    App.add_option("--device", Given.Setup.Device,
                   "auto (default: the user's own), alsa[:PCM], null, none or wav:PATH");
    OutputOptions& Output = Given.Setup.Output;
    App.add_option("--latency", Output.LatencyMs, "MS of sound given to a sound device ahead")
        ->check(CLI::Range(OutputOptions::LeastLatencyMs, OutputOptions::MostLatencyMs));
    App.add_option("--fade", Output.FadeMs,
                   "MS of the ramps at the edges of what is played (device: 5, file: 0)")
        ->check(CLI::Range(0, OutputOptions::MostFadeMs));
    App.add_option("--rate", Given.Rate, "the output's rate: wave (default), native or HZ");
    App.add_option("--engine", Given.Engine, "auto (default), dx9, dx7 or waveout");
    App.add_option("--log", Given.Setup.LogPath, "append causes of failures to FILE")
        ->type_name("FILE");
}

std::unique_ptr<BusLink> Connect(const Words& Given) {
    if (Given.OnBus) return BusLink::OnSessionBus();
    return std::make_unique<BusLink>(Descriptor(Given.Fd), BusLink::Side::Server);
}

// While it lives, the end of the connection ends the program: a pipe that is to take the recording
// may never get a reader, and nobody else looks at the connection meanwhile.
class EndsWithEditor {
  public:
    explicit EndsWithEditor(int Fd) : Over_(eventfd(0, EFD_CLOEXEC)) {
        if (!Over_) throw ErrnoFailure("cannot watch the connection", errno, FailureKind::Library);
        Watch_ = std::thread([Fd, Over = Over_.Get()] {
            std::array<pollfd, 2> Each{{{Fd, 0, 0}, {Over, POLLIN, 0}}};
            while (poll(Each.data(), Each.size(), -1) < 0 && errno == EINTR) {
            }
            if ((Each[0].revents & POLLHUP) != 0 && Each[1].revents == 0) _exit(Done);
        });
    }
    ~EndsWithEditor() {
        eventfd_write(Over_.Get(), 1);
        Watch_.join();
    }
    EndsWithEditor(const EndsWithEditor&) = delete;
    EndsWithEditor& operator=(const EndsWithEditor&) = delete;

  private:
    Descriptor Over_;
    std::thread Watch_;
};

std::unique_ptr<PlayServer> MakeServer(const Words& Given, const BusLink& Link) {
    std::optional<EndsWithEditor> Meanwhile;
    if (!Given.OnBus && Link.Open()) Meanwhile.emplace(sd_bus_get_fd(Link.Bus()));
    return std::make_unique<PlayServer>(Given.Setup);
}

// Until the editor is gone, or somebody ends the process.
int Serve(const Words& Given) {
    auto Link = Connect(Given);
    if (!Link->Open()) return Done;  // the editor has gone by now
    const auto Made = MakeServer(Given, *Link);
    PlayServer& Server = *Made;
    Interrupts Ended(Server.Home());
    {
        Host Hosting(Server, std::move(Link), Given.OnBus);
        if (Given.OnBus) Hosting.TakeName();
        Server.Home().RunUntil(Forever, [&] { return Hosting.Finished() || Ended.Seen(); });
        Hosting.End();
    }
    Server.Finish();
    return Done;
}

int Run(int Count, char** Arguments) {
    CLI::App App("The playback server of a wave editor, in a process of its own.",
                 "TolvarWaveEditorDll");
    Words Given;
    Declare(App, Given);
    try {
        App.parse(Count, Arguments);
        Given.Setup.Rate = SinkRateOf(Given.Rate);
        Given.Setup.Engine = EngineOrderOf(Given.Engine);
    } catch (const CLI::ParseError& Refused) {
        return App.exit(Refused) == 0 ? Done : Usage;
    } catch (const RuntimeFailure& Refused) {
        std::cerr << Refused.what() << '\n';
        return Usage;
    }
    return Serve(Given);
}

}  // namespace
}  // namespace Tolvar

int main(int Count, char** Arguments) {
    Tolvar::GuardProcess();
    try {
        return Tolvar::Run(Count, Arguments);
    } catch (const std::bad_alloc&) {
        std::cerr << "TolvarWaveEditorDll: not enough memory\n";
        return Tolvar::Lost;
    } catch (const std::exception& Failure) {
        std::cerr << "TolvarWaveEditorDll: " << Failure.what() << '\n';
        return Tolvar::Lost;
    }
}
