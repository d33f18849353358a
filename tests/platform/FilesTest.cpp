#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ConsoleMessageBox.h"
#include "platform/PosixFiles.h"
#include "platform/TextLog.h"
#include "tests/support/Fakes.h"
#include "tests/support/TempFolder.h"

namespace Tolvar::Testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

std::span<const std::byte> Bytes(const std::string& Text) {
    return std::as_bytes(std::span(Text));
}

std::string ReadText(File& From, std::int64_t BytePos, std::size_t Count) {
    std::string Text(Count, '?');
    From.ReadAt(BytePos, std::as_writable_bytes(std::span(Text)));
    return Text;
}

template <typename Work>
std::string FailureOf(Work Run) {
    try {
        Run();
    } catch (const RuntimeFailure& Failed) {
        EXPECT_EQ(Failed.Kind(), FailureKind::File);
        return Failed.what();
    }
    return "nothing failed";
}

struct FilesTest : ::testing::Test {
    TempFolder Folder;
    PosixFiles Disk;
};

TEST_F(FilesTest, ReadsAndWritesAtOneBasedPositions) {
    const std::string Path = Folder / "wörk\xff.tmp";
    Disk.Open(Path, FileAccess::Write)->WriteAt(1, Bytes("abcdef"));
    const auto Again = Disk.Open(Path, FileAccess::Write);
    Again->WriteAt(3, Bytes("XY"));
    Again->WriteAt(9, Bytes("z"));
    EXPECT_EQ(ReadText(*Again, 2, 4), "bXYe") << "opening for writing keeps what is there";
    EXPECT_EQ(ReadText(*Disk.Open(Path, FileAccess::Read), 1, 9), std::string("abXYef\0\0z", 9));
    EXPECT_EQ(ReadText(*Again, 99, 0), "");
}

TEST_F(FilesTest, BackslashesAreFolders) {
    std::filesystem::create_directory(Folder / "sub");
    const std::string Name = (Folder / "sub") + "\\tm1.tmp";
    EXPECT_FALSE(Disk.Exists(Name));
    ASSERT_NE(Disk.CreateNew(Name), nullptr);
    EXPECT_TRUE(Disk.Exists(Name));
    EXPECT_TRUE(std::filesystem::exists(Folder / "sub/tm1.tmp"));
    Disk.Delete(Name);
    Disk.Delete(Name);
    EXPECT_FALSE(Disk.Exists(Name));
}

TEST_F(FilesTest, CreateNewTouchesNothingThatExists) {
    Put(Folder / "a", "kept");
    ::symlink("nowhere", (Folder / "link").c_str());
    for (const auto* Name : {"a", "link"}) {
        EXPECT_TRUE(Disk.Exists(Folder / Name));
        EXPECT_EQ(Disk.CreateNew(Folder / Name), nullptr) << Name;
    }
    EXPECT_EQ(Get(Folder / "a"), "kept");
}

TEST_F(FilesTest, PositionsBeyondFourGigabytes) {
    const std::int64_t Far = 5'000'000'001;
    const auto Sparse = Disk.CreateNew(Folder / "big");
    Sparse->WriteAt(Far, Bytes("end"));
    EXPECT_EQ(ReadText(*Sparse, Far - 1, 4), std::string("\0end", 4));
}

TEST_F(FilesTest, EveryFailureNamesFilePositionAndCause) {
    const std::string Path = Folder / "short";
    Put(Path, "0123456789");
    ::mkfifo((Folder / "pipe").c_str(), 0600);
    const auto Reader = Disk.Open(Path, FileAccess::Read);
    const auto Open = [&](const std::string& Name, FileAccess Access = FileAccess::Read) {
        return FailureOf([&] { Disk.Open(Name, Access); });
    };
    const auto Read = [&](std::int64_t BytePos, std::size_t Count) {
        return FailureOf([&] { ReadText(*Reader, BytePos, Count); });
    };
    EXPECT_THAT(Open(Folder / "none"),
                AllOf(HasSubstr(Folder / "none"), HasSubstr("No such file")));
    EXPECT_THAT(Open(Path + "\\x", FileAccess::Write), HasSubstr("Not a directory"));
    EXPECT_THAT(Open(Folder / ""), HasSubstr("not a regular file"));
    EXPECT_THAT(Open(Folder / "pipe"), HasSubstr("not a regular file"));
    EXPECT_THAT(Open(Folder / "pipe", FileAccess::Write), HasSubstr("not a regular file"));
    EXPECT_THAT(Open("/dev/zero"), HasSubstr("not a regular file"));
    EXPECT_THAT(Open(std::string("a\0b", 3)), HasSubstr("zero byte"));
    EXPECT_THAT(Open(""), HasSubstr("No such file"));
    EXPECT_THAT(Read(5, 7), AllOf(HasSubstr(Path + " at byte 5: wanted 7 "), HasSubstr("after 6")));
    EXPECT_THAT(Read(11, 1), HasSubstr("after 0"));
    EXPECT_THAT(Read(INT64_MAX, 8), HasSubstr(Path));
    EXPECT_THAT(Read(0, 1), HasSubstr("at byte 0: the first byte is number 1"));
    EXPECT_THAT(FailureOf([&] { Reader->WriteAt(1, Bytes("x")); }), HasSubstr("Bad file desc"));
    EXPECT_THAT(FailureOf([&] { Reader->WriteAt(-1, Bytes("x")); }), HasSubstr("at byte -1"));
    EXPECT_THAT(FailureOf([&] { Disk.CreateNew(Folder / "no/a"); }), HasSubstr("cannot create"));
    EXPECT_THAT(FailureOf([&] { Disk.Delete(Folder / ""); }), HasSubstr("cannot delete"));
    EXPECT_THAT(FailureOf([&] { Disk.Exists(Folder / std::string(300, 'n')); }),
                HasSubstr("name too long"));
    EXPECT_EQ(Get(Path), "0123456789");
}

TEST_F(FilesTest, LogsAppendWholeLinesWithTheirTime) {
    const std::string Path = Folder / "log";
    TextLog(Path).Write("first\nline\x1b[2J");
    TextLog(Path).Write("second");
    const std::string Stamp = "[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z ";
    EXPECT_THAT(Get(Path),
                MatchesRegex(Stamp + "first\\\\nline\\\\x1b\\[2J\n" + Stamp + "second\n"));
}

TEST_F(FilesTest, ALogThatCannotBeOpenedBecomesStandardError) {
    ::testing::internal::CaptureStderr();
    TextLog Journal(Folder / "no/log");
    Journal.Write("cause");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                MatchesRegex("cannot open the log .*No such file.*\ncause\n"));
}

TEST_F(FilesTest, AMessageBoxIsOneLineOnStandardErrorAndInTheLog) {
    ListLog InMemory;
    TextLog OnStandardError("");
    for (Log* Each : std::initializer_list<Log*>{&InMemory, &OnStandardError}) {
        ::testing::internal::CaptureStderr();
        ConsoleMessageBox(*Each).Show("Disk\r\nfull");
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "message box: Disk\\r\\nfull\n");
    }
    EXPECT_THAT(InMemory.Lines, ::testing::ElementsAre("message box: Disk\\r\\nfull"));
}

}  // namespace
}  // namespace Tolvar::Testing
