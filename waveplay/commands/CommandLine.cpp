#include "waveplay/commands/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <string_view>

#include "card/live/AlsaDevice.h"
#include "card/voices/CardOutput.h"
#include "platform/RuntimeFailure.h"
#include "waveplay/files/ParseNumber.h"

namespace Tolvar {
namespace {

constexpr const char* Version = "waveplay 0.1.0";

constexpr const char* Overview =
    "Plays sound files through the playback server of a wave editor.\n"
    "`waveplay PIECE...` is short for `waveplay play PIECE...`.";

constexpr const char* OverviewFooter =
    "Each command explains itself: waveplay play --help\n"
    "Exit codes: 0 done, 1 playback or a file failed, 2 usage, 130 interrupted.";

constexpr const char* PlayFooter =
    "A PIECE is a sound file, FILE[FROM:TO] in seconds, or silence:SECONDS. Pieces become one\n"
    "wave with the first file's rate and channels. Without a PIECE the program plays a phrase of\n"
    "its own.\n"
    "Examples:\n"
    "  waveplay song.wav\n"
    "  waveplay play 'song.flac[30:45.5]' outro.wav\n"
    "  waveplay play intro.wav silence:1.5 song.wav --reverse\n"
    "  waveplay play song.wav --at 30 --loop --device wav:recorded.wav";

constexpr const char* RenderFooter =
    "Writes exactly the frames that would be heard, as 16-bit WAV, as fast as the machine can.\n"
    "Examples:\n"
    "  waveplay render a.wav silence:2 b.wav -o joined.wav\n"
    "  waveplay render song.wav --reverse --at 12.5 -o - | sox -t wav - out.flac";

constexpr const char* ScriptFooter =
    "Reads one command a line and prints one line per happening; docs/console.md has the grammar.\n"
    "Example:\n"
    "  printf 'DxObj 1\\nload song.wav\\nPlayAgain\\nwait-stop\\n' | waveplay script";

// Names that take the place of an option's value; the text explains a refusal.
template <typename Value, std::size_t Count>
std::string Choose(const std::array<std::pair<std::string_view, Value>, Count>& Choices,
                   const std::string& Given, Value& Chosen, const char* Explanation) {
    const auto Found = std::find_if(Choices.begin(), Choices.end(),
                                    [&](const auto& Choice) { return Choice.first == Given; });
    if (Found == Choices.end()) return Explanation;
    Chosen = Found->second;
    return {};
}

CLI::Validator NotEmpty() {
    return {[](const std::string& Given) { return std::string(Given.empty() ? "empty" : ""); }, ""};
}

using Taker = std::function<std::string(const std::string&)>;

// An option whose text Take turns into a setting; what it returns or throws is the complaint.
CLI::Option* AddTaken(CLI::App& Command, const std::string& Name, const std::string& About,
                      const Taker& Take) {
    return Command.add_option_function<std::string>(
        Name,
        [Name, Take](const std::string& Given) {
            std::string Complaint;
            try {
                Complaint = Take(Given);
            } catch (const RuntimeFailure& Refused) {
                throw CLI::ValidationError(Name, Refused.what());
            }
            if (!Complaint.empty()) throw CLI::ValidationError(Name, Given + ": " + Complaint);
        },
        About);
}

std::string TakeClock(const std::string& Given, bool& Virtual) {
    constexpr std::array<std::pair<std::string_view, bool>, 2> Clocks{
        {{"real", false}, {"virtual", true}}};
    return Choose(Clocks, Given, Virtual, "neither real nor virtual");
}

std::string TakeConnection(const std::string& Given, Connection& To) {
    constexpr std::array<std::pair<std::string_view, Connection>, 2> Places{
        {{"private", Connection::Private}, {"bus", Connection::Bus}}};
    return Choose(Places, Given, To, "neither private nor bus");
}

[[noreturn]] void ShowDevices() {
    std::cout << "auto\n    the user's own device, as alsa\n"
                 "null\n    no device: time passes in silence\n"
                 "none\n    a machine without a sound device\n"
                 "wav:PATH\n    records what is heard\n";
    for (const AlsaPcm& Each : AlsaPcms())
        std::cout << "alsa:" << Each.Name << "\n    " << Each.About << '\n';
    throw CLI::Success();
}

// A script has standard output for itself.
std::string TakeDevice(const std::string& Given, bool ForScript, std::string& Device) {
    if (ForScript && Given == "wav:-") return "standard output is for the script's own lines";
    if (Given == "help") ShowDevices();
    const bool IsFile = Given.starts_with("wav:") && Given.size() > 4;
    if (Given == "null" || Given == "none" || IsFile || IsLiveDevice(Given)) {
        Device = Given;
        return {};
    }
    return "not one of auto, alsa[:PCM], null, none, wav:PATH (--device help lists them)";
}

void AddPieces(CLI::App& Command, std::vector<std::string>& Pieces, RunOptions& Run) {
    Command.add_option("PIECE", Pieces, "sound file, or silence:SECONDS");
    Command.add_flag("--reverse", Run.Reverse, "play towards the start");
    AddTaken(Command, "--at", "where to begin, from the wave's start",
             [&Run](const std::string& Given) {
                 Run.At = ParseNumber<double>(Given);
                 const bool IsTime = Run.At && *Run.At >= 0 && *Run.At < 1e12;
                 return std::string(IsTime ? "" : "not a time in seconds");
             })
        ->type_name("SECONDS");
    Command.add_option("--tempo", Run.Tempo, "tempo factor forward (the waveOut engine has none)")
        ->check(CLI::PositiveNumber);
    Command.add_option("--tempo-rev", Run.TempoRev, "tempo factor in reverse")
        ->check(CLI::PositiveNumber);
}

void AddSetup(CLI::App& Command, SessionOptions& Setup) {
    AddTaken(Command, "--rate", "the output's rate: wave (default), native or HZ",
             [&Setup](const std::string& Given) {
                 SinkRateOf(Given);
                 Setup.Rate = Given;
                 return "";
             })
        ->type_name("RATE");
    AddTaken(Command, "--engine",
             "output engine: auto (default: the first that can be had), dx9, dx7, waveout",
             [&Setup](const std::string& Given) {
                 EngineOrderOf(Given);
                 Setup.Engine = Given;
                 return "";
             })
        ->type_name("ENGINE");
    Command.add_option("--log", Setup.LogPath, "append causes of failures to FILE")
        ->type_name("FILE")
        ->check(NotEmpty());
}

void AddClock(CLI::App& Command, SessionOptions& Setup, const char* About) {
    AddTaken(Command, "--clock", About,
             [&Setup](const std::string& Given) { return TakeClock(Given, Setup.VirtualClock); });
}

void AddDevice(CLI::App& Command, SessionOptions& Setup, bool ForScript, const char* About) {
    Command
        .add_option("--latency", Setup.Output.LatencyMs,
                    "of sound given to a real device ahead (60)")
        ->type_name("MS")
        ->check(CLI::Range(OutputOptions::LeastLatencyMs, OutputOptions::MostLatencyMs));
    Command
        .add_option("--fade", Setup.Output.FadeMs,
                    "of the ramps at the edges of what is played (real device: 5, else 0)")
        ->type_name("MS")
        ->check(CLI::Range(0, OutputOptions::MostFadeMs));
    AddTaken(Command, "--device", About, [&Setup, ForScript](const std::string& Given) {
        return TakeDevice(Given, ForScript, Setup.Device);
    })->type_name("DEVICE");
}

void RequireSettable(const CLI::App& Command, const SessionOptions& Setup) {
    if (Setup.VirtualClock && Command.count("--connect") > 0) {
        throw CLI::ValidationError("--connect", "a server keeps real time: --clock real");
    }
    if (Setup.VirtualClock && Command.count("--device") > 0 && IsLiveDevice(Setup.Device)) {
        throw CLI::ValidationError("--device", "a sound device keeps real time: --clock real");
    }
    if (Setup.To != Connection::Bus) return;
    for (const char* const Setting :
         {"--device", "--latency", "--fade", "--rate", "--engine", "--log"}) {
        if (Command.count(Setting) == 0) continue;
        throw CLI::ValidationError(Setting,
                                   "the server on the session bus has settings of its own");
    }
}

// The last of a command's options: it looks at all of them together.
void AddConnection(CLI::App& Command, SessionOptions& Setup) {
    CLI::Option* const Here = Command.add_flag_callback(
        "--in-process", [&Setup] { Setup.To = Connection::InProcess; },
        "play in this process, without a server");
    AddTaken(Command, "--connect",
             "private (default): a server process of its own; bus: the one on the session bus",
             [&Setup](const std::string& Given) { return TakeConnection(Given, Setup.To); })
        ->type_name("SERVER")
        ->excludes(Here);
    Command.callback([&Command, &Setup] { RequireSettable(Command, Setup); });
}

CLI::App* AddPlay(CLI::App& Root, PlayOptions& Options) {
    CLI::App* Command = Root.add_subcommand("play", "play sound files");
    Options.Setup.Device = "auto";
    AddPieces(*Command, Options.Pieces, Options.Run);
    Command->add_flag("--loop", Options.Run.Loop, "play again from the edge at the end");
    Command->add_flag("-q,--quiet", Options.Quiet, "no picture and no lines, failures excepted");
    Command
        ->add_option("--memory", Options.Run.MemorySizeToUse,
                     "BYTES of samples that may be kept in memory")
        ->check(CLI::NonNegativeNumber);
    AddDevice(*Command, Options.Setup, false,
              "auto (default), alsa[:PCM], null, none, wav:PATH or help");
    AddClock(*Command, Options.Setup, "real (default) or virtual");
    AddSetup(*Command, Options.Setup);
    AddConnection(*Command, Options.Setup);
    Command->footer(PlayFooter);
    return Command;
}

CLI::App* AddRender(CLI::App& Root, RenderOptions& Options) {
    CLI::App* Command = Root.add_subcommand("render", "write what would be heard to a WAV file");
    AddPieces(*Command, Options.Pieces, Options.Run);
    Command->get_option("PIECE")->required();
    Command->add_option("-o,--output", Options.OutPath, "OUT.wav; - is standard output")
        ->required()
        ->check(NotEmpty());
    AddSetup(*Command, Options.Setup);
    Command->footer(RenderFooter);
    return Command;
}

CLI::App* AddScript(CLI::App& Root, ScriptOptions& Options) {
    CLI::App* Command = Root.add_subcommand("script", "run a session in text");
    Options.Setup.VirtualClock = true;
    Command->add_option("FILE", Options.Path, "the script; - or none is standard input");
    Command->add_flag("--strict", Options.Strict, "end with exit code 1 at the first error");
    AddDevice(*Command, Options.Setup, true, "null (default), auto, alsa[:PCM], none or wav:PATH");
    AddClock(*Command, Options.Setup, "virtual (default) or real");
    AddSetup(*Command, Options.Setup);
    AddConnection(*Command, Options.Setup);
    Command->footer(ScriptFooter);
    return Command;
}

// The arguments behind the program's name, with the command that is meant when none is named.
std::vector<std::string> Spelled(int Count, const char* const* Arguments) {
    constexpr std::array<std::string_view, 6> Known{"play",   "render", "script",
                                                    "--help", "-h",     "--version"};
    std::vector<std::string> Words(Arguments + std::min(Count, 1), Arguments + Count);
    if (Words.empty() || std::find(Known.begin(), Known.end(), Words.front()) == Known.end()) {
        Words.insert(Words.begin(), "play");
    }
    return Words;
}

}  // namespace

Request ParseCommandLine(int Count, const char* const* Arguments) {
    CLI::App Root(Overview, "waveplay");
    Root.footer(OverviewFooter);
    Root.set_version_flag("--version", Version);
    Root.require_subcommand(1);
    PlayOptions ForPlay;
    RenderOptions ForRender;
    ScriptOptions ForScript;
    const CLI::App* PlayCommand = AddPlay(Root, ForPlay);
    const CLI::App* RenderCommand = AddRender(Root, ForRender);
    AddScript(Root, ForScript);

    std::vector<std::string> Words = Spelled(Count, Arguments);
    std::reverse(Words.begin(), Words.end());  // the order in which the parser takes them
    try {
        Root.parse(Words);
    } catch (const CLI::ParseError& Refused) {
        return Root.exit(Refused) == 0 ? ExitDone : ExitUsage;
    }
    if (PlayCommand->parsed()) return ForPlay;
    if (RenderCommand->parsed()) return ForRender;
    return ForScript;
}

}  // namespace Tolvar
