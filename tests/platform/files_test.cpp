#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "platform/posix/ConsoleMessageBox.h"
#include "platform/posix/OutputFile.h"
#include "platform/posix/PosixFiles.h"
#include "platform/posix/TextLog.h"
#include "tests/card/CardRig.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

std::span<const std::byte> Bytes(std::string_view Text) {
    return std::as_bytes(std::span(Text));
}

std::string ReadText(File& From, std::int64_t BytePos, std::size_t Count) {
    std::string Text(Count, '?');
    From.ReadAt(BytePos, std::as_writable_bytes(std::span(Text)));
    return Text;
}

struct FilesTest : Test {
    TempFolder Folder;
    PosixFiles Disk;
};

TEST_F(FilesTest, ReadsAndWritesAtOneBasedPositionsFarBeyondFourGigabytes) {
    const std::string Path = Folder / "wörk\xff.tmp";
    Disk.Open(Path, FileAccess::Write)->WriteAt(1, Bytes("abcdef"));
    const auto Again = Disk.Open(Path, FileAccess::Write);
    Again->WriteAt(3, Bytes("XY"));
    Again->WriteAt(5'000'000'001, Bytes("end"));
    EXPECT_EQ(ReadText(*Again, 2, 4), "bXYe") << "opening for writing keeps what is there";
    EXPECT_EQ(ReadText(*Again, 5'000'000'000, 4), std::string("\0end", 4));
}

TEST_F(FilesTest, BackslashesAreFoldersAndCreateNewTouchesNothingThatExists) {
    std::filesystem::create_directory(Folder / "sub");
    const std::string Name = (Folder / "sub") + "\\tm1.tmp";
    ASSERT_NE(Disk.CreateNew(Name), nullptr);
    EXPECT_TRUE(Disk.Exists(Name) && std::filesystem::exists(Folder / "sub/tm1.tmp"));
    Disk.Delete(Name);
    Disk.Delete(Name);
    EXPECT_FALSE(Disk.Exists(Name));
    Put(Folder / "a", "kept");
    ASSERT_EQ(::symlink("nowhere", (Folder / "link").c_str()), 0);
    EXPECT_TRUE(!Disk.CreateNew(Folder / "a") && !Disk.CreateNew(Folder / "link"));
    EXPECT_EQ(Get(Folder / "a"), "kept");
}

TEST_F(FilesTest, EveryFailureNamesFilePositionAndCause) {
    const std::string Path = Folder / "short";
    Put(Path, "0123456789");
    ::mkfifo((Folder / "pipe").c_str(), 0600);
    const auto Reader = Disk.Open(Path, FileAccess::Read);
    const std::vector<std::pair<std::function<void()>, std::string>> Cases{
        {[&] { Disk.Open(Folder / "none", FileAccess::Read); }, Folder / "none: No such file"},
        {[&] { Reader->SetLength(3); }, "cannot make " + Path + " 3 bytes long: "},
        {[&] { Disk.Open(Path + "\\x", FileAccess::Write); }, "Not a directory"},
        {[&] { Disk.Open(Folder / "pipe", FileAccess::Read); }, "not a regular file"},
        {[&] { Disk.Open(std::string("a\0b", 3), FileAccess::Read); }, "zero byte"},
        {[&] { ReadText(*Reader, 5, 7); }, Path + " at byte 5: wanted 7 bytes, but the file ends"},
        {[&] { ReadText(*Reader, 0, 1); }, "at byte 0: the first byte is number 1"},
        {[&] { Disk.Delete(Folder / ""); }, "cannot delete"},
        {[&] { Disk.Exists(Folder / std::string(300, 'n')); }, "name too long"},
    };
    for (const auto& [Call, Cause] : Cases)
        EXPECT_THAT(FailureOf(Call), HasSubstr(Cause));
}

TEST_F(FilesTest, LogsAppendWholeLinesAndFallBackToStandardErrorAsBoxesDo) {
    const std::string Path = Folder / "log";
    TextLog(Path).Write("first\nline\x1b[2J");
    TextLog(Path).Write("second");
    const std::string Stamp = "[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z ";
    EXPECT_THAT(Get(Path),
                MatchesRegex(Stamp + "first\\\\nline\\\\x1b\\[2J\n" + Stamp + "second\n"));
    ::testing::internal::CaptureStderr();
    TextLog(Folder / "no/log").Write("cause");
    TextLog OnStandardError("");
    ConsoleMessageBox(OnStandardError).Show("Disk\r\nfull");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                MatchesRegex("cannot open the log .*No such file.*\ncause\n"
                             "message box: Disk\\\\r\\\\nfull\n"));
}

TEST_F(FilesTest, AnOutputFileRemovesWhatKilledProgramsLeftAndNothingElse) {
    Put(Folder / ".tolvar-1-1.part", "left behind");
    {
        OutputFile First(Folder / "first");
        OutputFile Second(Folder / "second");
        EXPECT_EQ(Folder.Names().size(), 2U) << "one for each that is being written";
        First.Commit();
    }
    EXPECT_THAT(Folder.Names(), ElementsAre("first"));
}

TEST_F(FilesTest, LinesThatNobodyReadsDoNotStopTheirWriter) {
    std::array<int, 2> Pipe{};
    ASSERT_EQ(pipe(Pipe.data()), 0);
    const Descriptor Out(Pipe[0]);
    const Descriptor Before(dup(STDERR_FILENO));
    dup2(Pipe[1], STDERR_FILENO);
    close(Pipe[1]);
    TextLog Journal("");
    for (int I = 0; I < 40; ++I)  // more than any pipe takes
        Journal.Write(std::string(8000, 'x'));
    std::string Read(1 << 20, ' ');
    const auto Full = read(Out.Get(), Read.data(), Read.size());
    EXPECT_EQ(Full % 4096, 0) << "whole lines, cut to what a pipe takes at once";
    Journal.Write("seen");
    Read.resize(static_cast<std::size_t>(read(Out.Get(), Read.data(), Read.size())));
    dup2(Before.Get(), STDERR_FILENO);
    EXPECT_THAT(Read, MatchesRegex("\\([0-9]+ lines dropped here\\)\nseen\n"));
}

}  // namespace
}  // namespace Tolvar::Testing
